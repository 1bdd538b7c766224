#pragma once

#include "GLO/GLO_AutoPtr.hpp"
#include "GLO/GLO_NonCopyable.hpp"
#include "GLO/GLO_Optional.hpp"
#include "WIN/WIN_Version.hpp"

#include <string>
#include <utility>

namespace win {

/// What the library knows of the application that it runs in.
struct AppMetaDataContainer_t {
    std::wstring mProductName;    ///< what people call it; also the name of its trace files
    std::wstring mInternalName;   ///< of the executable
    Version_t mVersion;           ///< @plain
    std::wstring mPartNumber;     ///< the maker's; may be empty
    std::wstring mBetaEmail;      ///< where testers write to; empty where the library makes the container
    std::wstring mBuildDate;      ///< "Mar  2 2017", the day padded to two characters
    std::wstring mBuildTime;      ///< "hh:mm:ss"
    std::wstring mBuildUserId;    ///< the account that built it, "SQA" for what is released
    std::wstring mClassNameGuid;  ///< empty where the library makes the container
    std::wstring mBuildType;      ///< "Release", "Beta", "Alpha" or "Internal"
    std::wstring mCopyright;      ///< the notice, for people
};

/// The application's metadata. Never changes once made. Any thread.
class AppMetaData_t : public glo::NonCopyable_t {
  public:
    /// @param container  not null
    explicit AppMetaData_t(glo::AutoPtr<AppMetaDataContainer_t> container) : mContainer(std::move(container)) {}

    /// The container's fields.
    /// @{
    const std::wstring& ProductName() const { return mContainer->mProductName; }
    const std::wstring& InternalName() const { return mContainer->mInternalName; }
    const Version_t& Version() const { return mContainer->mVersion; }
    const std::wstring& PartNumber() const { return mContainer->mPartNumber; }
    const std::wstring& BetaEmail() const { return mContainer->mBetaEmail; }
    const std::wstring& BuildDate() const { return mContainer->mBuildDate; }
    const std::wstring& BuildTime() const { return mContainer->mBuildTime; }
    const std::wstring& BuildUserId() const { return mContainer->mBuildUserId; }
    const std::wstring& ClassNameGuid() const { return mContainer->mClassNameGuid; }
    const std::wstring& BuildType() const { return mContainer->mBuildType; }
    const std::wstring& Copyright() const { return mContainer->mCopyright; }
    /// @}

    /// Three parts of the version for a release; else all four and the build type: "2.0.1.7 Alpha".
    std::wstring FormattedVersion() const;

    /// Build date and time; known for internal and alpha builds only.
    glo::Optional_t<std::wstring> FormattedDateTime() const;

    /// The build account in parentheses; known for internal builds only.
    glo::Optional_t<std::wstring> FormattedUserId() const;

    bool IsBeta() const;  ///< by the build type

    /// A release that the release account "SQA" built. A release of any other account deliberately doesn't count.
    bool IsRelease() const;

    /// True for "Release", in this spelling.
    static bool IsReleaseBuildType(const std::wstring& type) { return type == L"Release"; }

  private:
    glo::AutoPtr<AppMetaDataContainer_t> mContainer;
};

/// The process's metadata, made at the first call from the container that was handed over before, else from the bundle.
/// Any thread.
const AppMetaData_t& AppMetaData();

/// Hands a container over for the first AppMetaData() call; after that call it is kept and ignored.
/// @param container  owned by the library from here on
/// Any thread.
void SetAppMetaDataContainer(AppMetaDataContainer_t* container);

/// Makes a container from the bundle's information dictionary and the build's own values. A version whose second word
/// is no build type is a mistake of whoever made the bundle and stops the process. Any thread.
[[nodiscard]] glo::AutoPtr<AppMetaDataContainer_t> CreateAppMetaData();

/// The running bundle's identifier; empty when it has none. Any thread.
std::wstring MainBundleIdentifier();

}  // namespace win
