#include "IOA/IOA_FrameFields.hpp"
#include "IOA/IOA_Packet.hpp"
#include "IOA/IOA_ProductData.hpp"
#include "IOA/IOA_PvtData.hpp"
#include "IOA/IOA_Records.hpp"
#include "IOL/IOL_Exception.hpp"

#include <gtest/gtest.h>

#include <csignal>

namespace {

using namespace ioa;
using Bytes = std::vector<unsigned char>;
using Texts = std::vector<std::wstring>;
using Rqst = DataRqst_t::Rqst_t;

/// The packet's bytes are exactly these. What a packet takes, and from how many bytes, is in its fuzz target's model.
template <typename Packet>
void ExpectForm(const Bytes& payload, const Packet& packet) {
    EXPECT_EQ(packet.ProduceFrame().Id(), Packet::gcId);
    EXPECT_EQ(packet.ProduceFrame().Bytes(), payload) << Packet::gcId;
}

template <typename Packet, typename Value>
Packet With(Value Packet::*field, Value value) {
    Packet packet;
    packet.*field = value;
    return packet;
}

// clang-format off
TEST(Packets, EncodingIsByteExact) {
    ExpectForm({0x07, 0x01}, Packet_t<12, unsigned short>(0x0107));
    ExpectForm({0xFE, 0xFF}, Packet_t<47, short>(-2));
    ExpectForm({4, 3, 2, 1}, Packet_t<91, unsigned int>(0x01020304));
    ExpectForm({200}, Packet_t<980, unsigned char>(200));
    ExpectForm({0xFE, 0xFF, 0xFF, 0xFF}, With(&UnitIdPacket_t::unitId, 0xFFFFFFFEU));
    ExpectForm({1, 0, 0, 0}, With(&DeviceDisconnectTimeout_t::timeout, 1U));
    ExpectForm({'J', 0xC3, 0xB8, 0xF0, 0x9F, 0x98, 0x80, 0}, UnitNamePacket_t(L"J\u00F8\U0001F600"));
    ExpectForm({0}, UnitNamePacket_t());
    ExpectForm({0, 0}, DataRqst_t());
    // Request numbers wrap at 32, and only 16 bits travel.
    ExpectForm({0x0A, 0x80}, DataRqst_t({Rqst{1}, Rqst{35}, Rqst{16}, Rqst{47}}));
    ExpectForm({0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0}, With(&RgnSize_t::size, -2LL));
    bool flag = false;
    ReadFields(iol::Frame_t(1, Bytes{2}), "", 0, flag);  // not all fields are their bytes
    EXPECT_TRUE(flag);
    TimeData_t time;
    std::tie(time.month, time.day, time.year, time.hour, time.minute, time.second) = std::tuple(1, 2, 2003, 4, 5, 6);
    ExpectForm({1, 2, 0xD3, 0x07, 4, 0, 5, 6}, time);
    PvtData_t pvt;
    pvt.floats1To4 = {1.0F, 2.0F, 3.0F, 4.0F};
    std::tie(pvt.fix, pvt.timeOfWeek, pvt.latitude, pvt.longitude) = std::tuple(3, 0.5, -1.0, 2.0);
    pvt.floats9To12 = {9.0F, 10.0F, 11.0F, 12.0F};
    std::tie(pvt.leapSeconds, pvt.dayCount) = std::tuple(-2, 0x01020304);
    ExpectForm({0, 0, 0x80, 0x3F, 0, 0, 0, 0x40, 0, 0, 0x40, 0x40, 0, 0, 0x80, 0x40, 3, 0, 0, 0, 0, 0, 0, 0, 0xE0, 0x3F,
                0, 0, 0, 0, 0, 0, 0xF0, 0xBF, 0, 0, 0, 0, 0, 0, 0, 0x40, 0, 0, 0x10, 0x41, 0, 0, 0x20, 0x41, 0, 0, 0x30,
                0x41, 0, 0, 0x40, 0x41, 0xFE, 0xFF, 4, 3, 2, 1}, pvt);
}
// clang-format on

TEST(ProductData, IsTwoNumbersAndTexts) {
    using namespace std::string_literals;
    ioa::ProductData_t data;
    std::tie(data.productId, data.softwareVersion) = std::tuple(263, -2);
    data.descriptions = {L"Model \u00E9", L"", L"second"};
    const std::string bytes = "\x07\x01\xFE\xFFModel \xC3\xA9\0\0second\0"s;
    ExpectForm({bytes.begin(), bytes.end()}, data);
}

TEST(ProductData, DisplayNameEndsAtTheSoftwareVersion) {
    const std::pair<Texts, std::wstring> cases[] = {
        {{}, L""},
        {{L"Model Beta Software Version 3.10", L"Other Software"}, L"Model Beta"},
        {{L"Model software version 3.10"}, L"Model"},
        {{L"Model software and Software"}, L"Model software and"},  // the capital one is looked for first
        {{L"Software"}, L"Software"},
        {{L" Software"}, L""},
    };
    for (const auto& [descriptions, name] : cases) {
        ioa::ProductData_t data;
        data.descriptions = descriptions;
        EXPECT_EQ(data.DisplayName(), name);
    }
}

TEST(PvtData, TimeIsTheNearestSecondWithHalvesAwayFromZero) {
    const auto seconds = [](int day, double timeOfWeek, short leap) {
        PvtData_t pvt;
        std::tie(pvt.fix, pvt.dayCount, pvt.timeOfWeek, pvt.leapSeconds) = std::tuple(2, day, timeOfWeek, leap);
        return pvt.Time().SecondsSinceGpsEpoch();
    };
    EXPECT_EQ(seconds(2, 10.49, 1), 2 * 86400 + 9);
    EXPECT_EQ(seconds(0, 2.5, 0), 3);
    EXPECT_EQ(seconds(0, 0.5, 3), -3);
    EXPECT_EQ(seconds(2147483647, 0, -1), 2147483647LL * 86400 + 1);
}

TEST(PacketsDeathTest, FaultsOfTheCallerStopTheProgram) {
    const auto stops = testing::KilledBySignal(SIGILL);
    EXPECT_EXIT((CommandPacket_t().AcceptFrame(iol::Frame_t(12, Bytes{1, 0}))), stops, "IOL/IOL_Packet.hpp Line: ");
    EXPECT_EXIT(PvtData_t().AcceptFrame(iol::Frame_t(12, Bytes(64))), stops, "IOL/IOL_Packet.hpp Line: ");
    EXPECT_EXIT(PvtData_t().Position(), stops, "libs/IOA/IOA_PvtData Line: ");
    EXPECT_EXIT(PvtData_t().Alt(), stops, "libs/IOA/IOA_PvtData Line: ");
    EXPECT_EXIT(PvtData_t().Time(), stops, "libs/IOA/IOA_PvtData Line: ");
}

}  // namespace
