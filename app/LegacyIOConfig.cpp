#include "app/LegacyIOConfig.hpp"

#include "GLO/GLO_String.hpp"
#include "WIN/WIN_AppMetaData.hpp"
#include "WIN/WIN_BuildInfo.hpp"
#include "WIN/WIN_Encoding.hpp"
#include "platform/NSBundle.hpp"
#include "platform/Platform.hpp"

void LegacyIOConfig::configureMetaData() noexcept {
    glo::AutoPtr<win::AppMetaDataContainer_t> container(new win::AppMetaDataContainer_t);
    container->mBuildDate = glo::wstring(win::BuildDate(), win::AsciiEncoding());
    container->mBuildTime = glo::wstring(win::BuildTime(), win::AsciiEncoding());
    container->mBuildType = L"Release";
    container->mBuildUserId = L"Trovik";
    container->mPartNumber = L"006-B0000-00";
    const platform::NSBundle& bundle = platform::mainBundle();
    container->mProductName = glo::wstring(bundle.infoText("CFBundleName", "Trovik App"), win::Utf8Encoding());
    container->mVersion = win::StringToVersion(bundle.infoText("CFBundleShortVersionString", "1.0"));
    win::SetAppMetaDataContainer(container.release());
}
