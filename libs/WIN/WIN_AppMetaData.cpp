#include "WIN/WIN_AppMetaData.hpp"

#include "GLO/GLO_Assert.hpp"
#include "GLO/GLO_String.hpp"
#include "WIN/WIN_BuildInfo.hpp"
#include "WIN/WIN_Encoding.hpp"
#include "libs/WIN/impl/WIN_FirstUse.hpp"
#include "platform/NSBundle.hpp"
#include "platform/NSUserDefaults.hpp"
#include "platform/Platform.hpp"

#include <mutex>
#include <string_view>
#include <utility>
#include <vector>

namespace win {
namespace {

/// The container that waits for the first AppMetaData() call.
struct Pending_t {
    std::mutex mMutex;
    glo::AutoPtr<AppMetaDataContainer_t> mContainer;  ///< locked by mMutex
};

Pending_t& Pending() {
    static Pending_t pending;
    return pending;
}

std::vector<std::wstring> Words(std::wstring_view text) {
    std::vector<std::wstring> words(1);
    for (const wchar_t character : text) {
        if (character == L' ')
            words.emplace_back();
        else
            words.back() += character;
    }
    return words;
}

std::wstring Ascii(std::string_view text) {
    return glo::wstring(text, AsciiEncoding());
}
std::wstring Wide(std::string_view text) {
    return glo::wstring(text, Utf8Encoding());
}

}  // namespace

std::wstring AppMetaData_t::FormattedVersion() const {
    const Version_t& version = Version();
    std::wstring text = version.MajorMinorString() + L'.' + std::to_wstring(version.Third());
    if (IsReleaseBuildType(BuildType())) return text;
    return text + L'.' + std::to_wstring(version.Fourth()) + L' ' + BuildType();
}

glo::Optional_t<std::wstring> AppMetaData_t::FormattedDateTime() const {
    if (BuildType() != L"Internal" && BuildType() != L"Alpha") return {};
    return BuildDate() + L' ' + BuildTime();
}

glo::Optional_t<std::wstring> AppMetaData_t::FormattedUserId() const {
    if (BuildType() != L"Internal") return {};
    return L'(' + BuildUserId() + L')';
}

bool AppMetaData_t::IsBeta() const {
    return BuildType() == L"Beta";
}

bool AppMetaData_t::IsRelease() const {
    return IsReleaseBuildType(BuildType()) && glo::EqualNoCase(BuildUserId(), L"SQA");
}

const AppMetaData_t& AppMetaData() {
    static const AppMetaData_t metaData([] {
        const FirstUseScope_t firstUse;
        glo::AutoPtr<AppMetaDataContainer_t> container;
        {
            const std::lock_guard lock(Pending().mMutex);
            container = std::move(Pending().mContainer);
        }
        return container ? std::move(container) : CreateAppMetaData();
    }());
    return metaData;
}

void SetAppMetaDataContainer(AppMetaDataContainer_t* container) {
    glo::AutoPtr<AppMetaDataContainer_t> owned(container);
    const std::lock_guard lock(Pending().mMutex);
    Pending().mContainer = std::move(owned);
}

glo::AutoPtr<AppMetaDataContainer_t> CreateAppMetaData() {
    glo::AutoPtr<AppMetaDataContainer_t> container(new AppMetaDataContainer_t);
    container->mBuildDate = Ascii(BuildDate());
    container->mBuildTime = Ascii(BuildTime());
    container->mBuildUserId =
        platform::standardUserDefaults().boolForKey("AppTestReleaseBuild") ? L"SQA" : Ascii(BuildUserId());

    const platform::NSBundle& bundle = platform::mainBundle();
    container->mProductName = Wide(bundle.infoText("CFBundleName"));
    container->mInternalName = Wide(bundle.infoText("CFBundleExecutable"));
    container->mPartNumber = Wide(bundle.infoText("TrovikPartNumber"));
    container->mCopyright = Wide(bundle.infoText("NSHumanReadableCopyright"));

    const std::string version = bundle.infoText("CFBundleVersion");
    container->mVersion = StringToVersion(version);
    const auto words = Words(Wide(version));
    std::wstring& type = container->mBuildType;
    if (words.size() >= 2) type = words[1];
    if (type != L"Internal" && type != L"Alpha" && type != L"Beta") {
        glo::Assert(type.empty() && words.size() == 1, "libs/WIN/WIN_AppMetaData", __LINE__);
        type = L"Release";
    }
    return container;
}

std::wstring MainBundleIdentifier() {
    return Wide(platform::mainBundle().bundleIdentifier());
}

}  // namespace win
