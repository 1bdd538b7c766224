#include "WIN/WIN_CRegistry.hpp"
#include "WIN/WIN_Registry.hpp"
#include "WIN/WIN_RegistryUtils.hpp"
#include "tests/WIN/WIN_Support.hpp"

#include <gmock/gmock.h>

#include <cstring>

namespace win {
namespace {

using platform::PropertyList;
using ::testing::Property;
using ::testing::Throws;
using Utils = RegistryUtils;

class RegistryTest : public SettingsTest {};

PropertyList Bytes(std::initializer_list<unsigned char> bytes) {
    return {PropertyList::Data(bytes)};
}

TEST_F(RegistryTest, OpeningMakesKeysOnlyWhenToldToAndNeverPassesThroughAValue) {
    Store("RegistryRoot", {std::string("no dictionary")});
    CRegistry registry(1);
    EXPECT_FALSE(registry.OpenKeyPath(L"A\\B", false));
    EXPECT_FALSE(Utils::PathExists(1, L"A"));
    EXPECT_TRUE(registry.OpenKeyPath(L"A\\B", true));
    EXPECT_TRUE(Utils::PathExists(1, L"A\\B"));
    for (const wchar_t* root : {L"", L"/", L"\\"}) EXPECT_TRUE(Utils::PathExists(2, root)) << root;
    EXPECT_FALSE(Utils::PathExists(1, L"A\\\\B")) << "an empty name is a name";
    EXPECT_TRUE(registry.Write(L"value", L"\u00E4 text"));
    std::wstring wide;
    std::string narrow;
    EXPECT_TRUE(Utils::GetRegistryValue(2, L"A/B", L"value", wide) && wide == L"\u00E4 text") << "the other root";
    EXPECT_TRUE(Utils::GetRegistryValue(2, L"A\\B\\", L"value", narrow) && narrow == "\xC3\xA4 text");
    EXPECT_FALSE(registry.OpenKeyPath(L"A\\B\\value\\C", true));
    EXPECT_FALSE(registry.OpenKeyPath(L"A\\B\\value", false));
    EXPECT_EQ(registry.ValueCount(), 1) << "a path that can't be opened leaves the open key open";
}

TEST_F(RegistryTest, IntegersAreFourBytesOrANumber) {
    const std::tuple<const char*, PropertyList, std::optional<int>> cases[] = {
        {"four bytes", Bytes({1, 0, 0, 0x80}), static_cast<int>(0x80000001)},
        {"two bytes", Bytes({1, 0}), {}},
        {"number", {std::int64_t{-7}}, -7},
        {"text", {std::string("5")}, {}}};
    for (const auto& [kind, stored, expected] : cases) {
        StoreSettings({{"value", stored}});
        int value = 0;
        EXPECT_EQ(Utils::GetRegistryValue(1, SettingsKey().Path(), L"value", value), expected.has_value()) << kind;
        EXPECT_EQ(value, expected.value_or(0)) << kind;
    }
    unsigned int number = 0;
    bool truth = false;
    ASSERT_TRUE(Utils::SetRegistryValue(1, L"A", L"n", 0xFFFFFFFEU));
    EXPECT_TRUE(Utils::GetRegistryValue(1, L"A", L"n", number) && Utils::GetRegistryValue(1, L"A", L"n", truth));
    EXPECT_TRUE(number == 0xFFFFFFFEU && truth) << number;
}

TEST_F(RegistryTest, BinaryDataComesBackOnlyWhenTheBufferHoldsIt) {
    const unsigned char data[] = {1, 2, 3};
    ASSERT_TRUE(Utils::SetRegistryValue(1, L"A", L"data", data, 3));
    ASSERT_TRUE(Utils::SetRegistryValue(1, L"A", L"text", std::string("x")));
    EXPECT_FALSE(Utils::SetRegistryValue(1, L"A", L"bad", nullptr, 3));
    constexpr unsigned int none = 0xFFFFFFFF;
    const std::tuple<const wchar_t*, int, unsigned int> cases[] = {{L"data", 3, 3}, {L"data", 8, 3}, {L"data", 2, 3},
                                                                   {L"data", 0, 3}, {L"text", 8, 0}, {L"bad", 8, none}};
    for (const auto& [name, size, count] : cases) {
        unsigned char buffer[8] = {9, 9, 9};
        EXPECT_EQ(Utils::GetRegistryValue(1, L"A", name, buffer, size), count) << name;
        EXPECT_EQ(std::memcmp(buffer, data, 3) == 0, count == 3 && size >= 3) << name << size;
        EXPECT_EQ(Utils::KeyExists(1, L"A", name), count != none) << name;
    }
    EXPECT_EQ(Utils::GetRegistryValue(1, L"nowhere", L"x", nullptr, 0), none);
    CRegistry closed(1);
    std::wstring text;
    EXPECT_FALSE(closed.Write(L"x", 1) || closed.Remove(L"x") || closed.Read(L"x", text) || closed.ValueName(0, text));
    EXPECT_EQ(closed.Read(L"x", nullptr, 0), none);
}

TEST_F(RegistryTest, ValuesAndSubkeysAreEnumeratedAndRemovedApart) {
    const RegKey_t key(1, L"A");
    EXPECT_EQ(key.ValueCount() + key.SubKeyCount(), 0);
    for (const wchar_t* name : {L"v1", L"v2"}) ASSERT_TRUE(key.SetStringValue(name, L"x"));
    for (const wchar_t* name : {L"k1", L"k2", L"k3"}) ASSERT_TRUE(RegKey_t(key, name).SetStringValue(L"deep", L"x"));
    EXPECT_EQ(key.ValueCount(), 2);
    EXPECT_EQ(key.SubKeyCount(), 3);
    EXPECT_EQ(key.ValueName(0) + key.ValueName(1), L"v1v2");
    EXPECT_EQ(key.SubKeyName(0) + key.SubKeyName(2), L"k1k3");
    EXPECT_EQ(RegKey_t(key, 1).Path(), L"A\\k2");
    EXPECT_THROW(key.ValueName(2), RegException_t);
    EXPECT_THROW(RegKey_t(key, 3), RegException_t);

    EXPECT_TRUE(key.Delete(L"v1") && key.DeleteSubKey(L"k1") && key.DeleteSubKey(0));
    EXPECT_FALSE(key.Delete(L"v1") || key.DeleteSubKey(L"k1") || Utils::RemoveTerminlNodeOfPath(1, L"x\\y"));
    EXPECT_EQ(key.ValueName(0) + key.SubKeyName(0), L"v2k3");
    EXPECT_TRUE(Utils::RemoveTerminlNodeOfPath(2, L"A"));
    EXPECT_FALSE(Utils::PathExists(1, L"A"));
}

TEST_F(RegistryTest, ManyWritesEndInOneWriteBesideWhatOthersKeepThere) {
    Store("logLevel", {std::int64_t{7}});
    for (unsigned int i = 0; i < 50; ++i) Utils::SetRegistryValue(1, L"A\\B", L"n" + std::to_wstring(i), i);
    RunMainLoop(0);
    EXPECT_EQ(writes, 0) << "not before a millisecond has passed";
    RunMainLoop(1);
    RunMainLoop(100);
    EXPECT_EQ(writes, 1);
    EXPECT_EQ(Stored().at("logLevel"), PropertyList{std::int64_t{7}});
    EXPECT_EQ(Stored().at("RegistryRoot").find("A")->find("B")->dictionary()->size(), 50u);
    EXPECT_FALSE(Utils::RemoveRegistryKeyAndValue(1, L"A\\B", L"absent"));
    RunMainLoop(100);
    EXPECT_EQ(writes, 1) << "nothing was changed";
    EXPECT_TRUE(Utils::RemoveRegistryKeyAndValue(1, L"A\\B", L"n7"));
    RunMainLoop(1);
    EXPECT_EQ(writes, 2);
}

TEST_F(RegistryTest, TheWellKnownKeysKeepTheirUnequalPaths) {
    // clang-format off
    const std::tuple<const RegKey_t&, unsigned int, std::wstring> cases[] = {
        {CurrentUserKey(), 1, L"HKEY_CURRENT_USER"}, {LocalMachineKey(), 2, L"HKEY_LOCAL_MACHINE"},
        {TrovikCurrentUserKey(), 1, L"Software\\Trovik"}, {SettingsKey(), 1, L"Software\\Trovik\\Settings"},
        {CommonCurrentUserKey(), 1, L"Software\\Trovik\\Common"}, {DataKey(), 1, L"Software\\Trovik\\Data"},
        {SharedSettingsKey(), 1, L"Software\\Trovik\\SharedSettings"},
        {TrovikLocalMachineKey(), 2, L"HKEY_LOCAL_MACHINE\\Software\\Trovik"}};
    // clang-format on
    for (const auto& [key, root, path] : cases) {
        EXPECT_EQ(key.Path(), path);
        EXPECT_EQ(key.Root(), root) << std::string(path.begin(), path.end());
    }
    info["CFBundleExecutable"] = {std::string("Tool")};
    EXPECT_FALSE(TrovikCurrentUserKeyExists() || TrovikLocalMachineKeyExists() || AppLocalMachineKeyExists());
    TrovikLocalMachineKey().SetStringValue(L"x", L"x");
    EXPECT_FALSE(TrovikLocalMachineKeyExists());
    RegKey_t(TrovikCurrentUserKey(), L"Tool").SetStringValue(L"x", L"x");
    EXPECT_TRUE(TrovikCurrentUserKeyExists() && TrovikLocalMachineKeyExists() && AppLocalMachineKeyExists());
}

TEST_F(RegistryTest, TypedValuesReadWriteAndGoBackToTheirDefault) {
    StoreSettings({{"flag", {std::string("x")}}});
    const RegKey_t& key = SettingsKey();
    RegValue_t<glo::TimeSpan_t> span(key, L"span", glo::TimeSpan_t(1.5));
    EXPECT_FALSE(span.IsKnown());
    span.SetToDefault();
    RegValue_t<std::wstring> text(key, L"text");
    EXPECT_THAT([&] { text.Get(); }, Throws<RegException_t>(Property(&RegException_t::Message, L"\\text")));
    text.Set(L"written");
    ConstRegValue_t<std::wstring> other(key, L"text");
    other.Refresh();
    EXPECT_EQ(other.Get(), L"written");
    text.SetToDefault();
    other.Refresh();
    EXPECT_FALSE(text.IsKnown() || other.IsKnown() || key.ValueExists(L"text"));
    double seconds = 0;
    EXPECT_EQ(key.GetBinaryValue(L"span", &seconds, sizeof seconds), 8U);
    EXPECT_EQ(seconds, 1.5);

    ConstRegValue_t<bool> flag(key, L"flag");
    EXPECT_THAT([&] { flag.Refresh(); }, Throws<RegError_t>(Property(&RegError_t::Message, L"flag")));
}

TEST_F(RegistryTest, SwitchesThatAreNeitherOffNorOnGoBackToTheirDefault) {
    StoreSettings({{"UseLocalTime", Bytes({7})},
                   {"ShowDebug", Bytes({2})},
                   {"ShowUsbDebug", Bytes({1})},
                   {"UserUtcOffset", {std::string("x")}},
                   {"UserTimeZoneId", {std::string("Z")}}});
    // The text in place of a number raises an exception, which announces itself on a server that asks for a switch.
    OnFirstUse([&] {
        Registry_t& registry = Registry();
        EXPECT_TRUE(registry.UseLocalTime().Get());
        EXPECT_FALSE(registry.ShowDebug().IsKnown());
        EXPECT_TRUE(registry.ShowUsbDebug().Get());
        EXPECT_FALSE(registry.UserUtcOffset().IsKnown());
        EXPECT_EQ(registry.UserTimeZoneId().Get(), L"Z");
        RunMainLoop(1);
        EXPECT_EQ(writes, 1);
    });
    EXPECT_EQ(StoredSettings(), (PropertyList::Dictionary{{"UseLocalTime", Bytes({1})},
                                                          {"ShowUsbDebug", Bytes({1})},
                                                          {"UserUtcOffset", {std::string("x")}},
                                                          {"UserTimeZoneId", {std::string("Z")}}}));
}

}  // namespace
}  // namespace win
