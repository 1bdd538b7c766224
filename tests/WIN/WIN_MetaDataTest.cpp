#include "WIN/WIN_AppMetaData.hpp"
#include "WIN/WIN_Version.hpp"
#include "app/LegacyIOConfig.hpp"
#include "tests/WIN/WIN_Support.hpp"

namespace win {
namespace {

TEST(Version, TheTwoParsersDifferOnPurpose) {
    const std::tuple<std::string, Version_t, Version_t> cases[] = {
        {"", {0, 0, 0, 0}, {0, 0, 0, 0}},           {"5.x.7", {5, 7, 0, 0}, {5, 0, 7, 0}},
        {"1..2...3", {1, 2, 3, 0}, {1, 0, 2, 0}},   {"1.2.3.4.5", {1, 2, 3, 4}, {1, 2, 3, 4}},
        {"1.2.3 Beta", {1, 2, 3, 0}, {1, 2, 3, 0}}, {"65535.65536.7", {65535, 7, 0, 0}, {65535, 0, 7, 0}}};
    for (const auto& [text, wide, platform] : cases) {
        EXPECT_EQ(Version_t(std::wstring(text.begin(), text.end())).Str(), wide.Str()) << text;
        EXPECT_EQ(StringToVersion(text).Str(), platform.Str()) << text;
    }
}

TEST(Version, TextsAndOrder) {
    EXPECT_EQ(Version_t(1, 2, 0, 0).Str(), L"1.2.0.0");
    EXPECT_EQ(Version_t(3, 7, 1, 1).MajorMinorString(), L"3.7");
    EXPECT_EQ(Version_t(3, 7, 1, 1).DeviceString(), L"3.07");
    EXPECT_EQ(Version_t(3, 123, 1, 1).DeviceString(), L"3.123");
    const Version_t ascending[] = {{0, 9, 9, 9}, {1, 2, 3, 4}, {1, 2, 3, 5}, {1, 2, 4, 0}, {1, 3, 0, 0}, {2, 0, 0, 0}};
    for (const auto& a : ascending) {
        for (const auto& b : ascending) EXPECT_EQ(a.LessThan(b), &a < &b) << a.Major() << b.Major();
    }
}

class MetaData : public SettingsTest {
  protected:
    AppMetaData_t Of(const std::string& version) {
        info["CFBundleVersion"] = {version};
        return AppMetaData_t(CreateAppMetaData());
    }
};

TEST_F(MetaData, TheBuildTypeIsTheSecondWordOfTheBundlesVersionAndAnUnknownOneStopsTheProcess) {
    const std::tuple<const char*, std::wstring, const wchar_t*, bool, bool> cases[] = {
        {"2.0.1", L"Release", L"2.0.1", false, false},
        {"2.0.1.7 Alpha", L"Alpha", L"2.0.1.7 Alpha", true, false},
        {"1.2.3.4 Beta", L"Beta", L"1.2.3.4 Beta", false, false},
        {"1.2.3 Internal rest", L"Internal", L"1.2.3.0 Internal", true, true},
        {"", L"Release", L"0.0.0", false, false}};
    for (const auto& [version, type, formatted, hasDate, hasUser] : cases) {
        const AppMetaData_t made = Of(version);
        EXPECT_EQ(made.BuildType(), type);
        EXPECT_EQ(made.FormattedVersion(), formatted);
        EXPECT_EQ(made.IsBeta(), type == L"Beta");
        EXPECT_FALSE(made.IsRelease()) << version;
        ASSERT_EQ(made.FormattedDateTime().IsKnown(), hasDate) << version;
        ASSERT_EQ(made.FormattedUserId().IsKnown(), hasUser) << version;
        EXPECT_TRUE(!hasDate || made.FormattedDateTime().Value() == made.BuildDate() + L' ' + made.BuildTime());
        EXPECT_TRUE(!hasUser || made.FormattedUserId().Value() == L'(' + made.BuildUserId() + L')');
    }
    for (const char* version : {"1.2.3 Release", "1.2.3 ", "1.2.3  Beta", " Gamma"})
        EXPECT_DEATH(Of(version), "File: libs/WIN/WIN_AppMetaData Line: ") << version;
}

TEST_F(MetaData, OnlyTheReleaseAccountMakesARelease) {
    Store("AppTestReleaseBuild", {true});
    EXPECT_TRUE(Of("2.0.1").IsRelease());
    EXPECT_FALSE(Of("2.0.1 Beta").IsRelease());
    glo::AutoPtr<AppMetaDataContainer_t> container(new AppMetaDataContainer_t);
    container->mBuildType = L"Release";
    container->mBuildUserId = L"sQa";
    EXPECT_TRUE(AppMetaData_t(std::move(container)).IsRelease());
}

TEST_F(MetaData, WhatTheBundleSaysIsTakenUnlessTheApplicationHandsItsOwnOverInTime) {
    info = {{"CFBundleName", {std::string("N\xC3\xA4me")}},
            {"CFBundleShortVersionString", {std::string("3.4")}},
            {"CFBundleVersion", {std::string("1.2.3 Beta")}},
            {"NSHumanReadableCopyright", {std::string(" (c)")}},
            {"TrovikPartNumber", {std::string("006")}}};
    OnFirstUse([] {
        const AppMetaData_t& metaData = AppMetaData();
        EXPECT_EQ(metaData.ProductName() + metaData.Copyright(), L"N\u00E4me (c)");
        EXPECT_EQ(metaData.InternalName() + metaData.BetaEmail() + metaData.ClassNameGuid(), L"");
        EXPECT_EQ(metaData.Version(), Version_t(1, 2, 3, 0));
        EXPECT_EQ(metaData.BuildTime().size(), 8u);
        SetAppMetaDataContainer(new AppMetaDataContainer_t);
        EXPECT_EQ(AppMetaData().PartNumber(), L"006") << "handed over too late";
    });
    const auto configuresAs = [this](const std::wstring& name, const Version_t& version) {
        OnFirstUse([&] {
            SetAppMetaDataContainer(new AppMetaDataContainer_t);
            LegacyIOConfig::configureMetaData();  // the last one counts
            const AppMetaData_t& metaData = AppMetaData();
            EXPECT_EQ(metaData.ProductName() + metaData.Copyright(), name);
            EXPECT_EQ(metaData.Version(), version);
            EXPECT_EQ(metaData.PartNumber() + metaData.BuildUserId() + metaData.BuildType(),
                      L"006-B0000-00TrovikRelease");
            EXPECT_EQ(metaData.BuildDate().size(), 11u);
        });
    };
    configuresAs(L"N\u00E4me", {3, 4, 0, 0});
    info = {};
    configuresAs(L"Trovik App", {1, 0, 0, 0});
}

}  // namespace
}  // namespace win
