#include "IOA/IOA_Packet.hpp"
#include "IOA/IOA_ProductData.hpp"
#include "IOA/IOA_PvtData.hpp"
#include "IOA/IOA_RawPackets.hpp"
#include "IOA/IOA_Records.hpp"
#include "IOL/IOL_Exception.hpp"

#include <gtest/gtest.h>

#include <csignal>
#include <limits>
#include <memory>

namespace {

using namespace ioa;
using Bytes = std::vector<unsigned char>;
using Texts = std::vector<std::wstring>;
using Rqst = DataRqst_t::Rqst_t;

Bytes Payload(const std::string& text) {
    return {text.begin(), text.end()};
}

/// A packet with its payload, and one of the same class to be filled.
struct WireForm {
    unsigned short id;
    std::shared_ptr<iol::Packet_t> packet;
    std::shared_ptr<iol::Packet_t> blank;
    Bytes payload;
};

template <typename Packet>
WireForm Form(Bytes payload, Packet packet) {
    return {Packet::gcId, std::make_shared<Packet>(packet), std::make_shared<Packet>(), std::move(payload)};
}

template <typename Packet, typename Value>
WireForm FormOf(Value Packet::*field, Value value, Bytes payload) {
    Packet packet;
    packet.*field = value;
    return Form(std::move(payload), packet);
}

// clang-format off
std::vector<WireForm> WireForms() {
    TimeData_t time;
    std::tie(time.month, time.day, time.year, time.hour, time.minute, time.second) = std::tuple(1, 2, 2003, 4, 5, 6);
    PvtData_t pvt;
    pvt.floats1To4 = {1.0F, 2.0F, 3.0F, 4.0F};
    std::tie(pvt.fix, pvt.timeOfWeek, pvt.latitude, pvt.longitude) = std::tuple(3, 0.5, -1.0, 2.0);
    pvt.floats9To12 = {9.0F, 10.0F, 11.0F, 12.0F};
    std::tie(pvt.leapSeconds, pvt.dayCount) = std::tuple(-2, 0x01020304);
    return {
        Form({0x07, 0x01}, Packet_t<12, unsigned short>(0x0107)),
        Form({0xFE, 0xFF}, Packet_t<47, short>(-2)),
        Form({4, 3, 2, 1}, Packet_t<91, unsigned int>(0x01020304)),
        Form({200}, Packet_t<980, unsigned char>(200)),
        FormOf(&UnitIdPacket_t::unitId, 0xFFFFFFFEU, {0xFE, 0xFF, 0xFF, 0xFF}),
        FormOf(&DeviceDisconnectTimeout_t::timeout, 1U, {1, 0, 0, 0}),
        Form({'J', 0xC3, 0xB8, 0xF0, 0x9F, 0x98, 0x80, 0}, UnitNamePacket_t(L"J\u00F8\U0001F600")),
        Form({0}, UnitNamePacket_t()),
        Form({1, 2, 0xD3, 0x07, 4, 0, 5, 6}, time),
        Form({0, 0}, DataRqst_t()),
        Form({0x09, 0x80}, DataRqst_t({Rqst{0}, Rqst{3}, Rqst{15}})),
        FormOf(&RgnSize_t::size, -2LL, {0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0}),
        Form({0, 0, 0x80, 0x3F, 0, 0, 0, 0x40, 0, 0, 0x40, 0x40, 0, 0, 0x80, 0x40, 3, 0, 0, 0, 0, 0, 0, 0, 0xE0, 0x3F,
              0, 0, 0, 0, 0, 0, 0xF0, 0xBF, 0, 0, 0, 0, 0, 0, 0, 0x40, 0, 0, 0x10, 0x41, 0, 0, 0x20, 0x41, 0, 0, 0x30,
              0x41, 0, 0, 0x40, 0x41, 0xFE, 0xFF, 4, 3, 2, 1}, pvt)};
}
// clang-format on

TEST(Packets, EncodingIsByteExactAndDecodingTakesSurplusButNothingShorter) {
    for (const WireForm& form : WireForms()) {
        SCOPED_TRACE(form.id);
        EXPECT_EQ(form.packet->ProduceFrame().Id(), form.id);
        EXPECT_EQ(form.packet->ProduceFrame().Bytes(), form.payload);
        for (unsigned int size = 0; size < form.payload.size(); ++size) {
            const iol::Frame_t cut(form.id, form.payload.data(), size);
            EXPECT_THROW(form.blank->AcceptFrame(cut), iol::BadFrame_t) << size;
        }
        Bytes longer = form.payload;
        longer.push_back(0xFF);
        form.blank->AcceptFrame(iol::Frame_t(form.id, longer));
        EXPECT_EQ(form.blank->ProduceFrame().Bytes(), form.payload);
    }
}

TEST(Packets, RequestNumbersWrapAtThirtyTwoAndOnlySixteenBitsTravel) {
    DataRqst_t requests({Rqst{35}, Rqst{31}, Rqst{16}, Rqst{47}});
    EXPECT_EQ(requests.ProduceFrame().Bytes(), (Bytes{0x08, 0x80}));
}

TEST(Packets, RawCommandKeepsItsNumberAndTakesAnyData) {
    IopCommandPacket_t packet(1500, {1});
    packet.AcceptFrame(iol::Frame_t(1500, Bytes{2, 3}));
    EXPECT_EQ(packet.Command(), 1500);
    EXPECT_EQ(packet.ProduceFrame().Bytes(), (Bytes{2, 3}));
}

TEST(ProductData, WhateverTheDeviceSendsIsTakenOrABadFrame) {
    using namespace std::string_literals;
    const std::string numbers = "\x07\x01\xFE\xFF";
    const std::pair<std::string, Texts> cases[] = {
        {numbers, {}},
        {numbers + "Model \xC3\xA9\0\0second\0"s, {L"Model \u00E9", L"", L"second"}},
        {numbers + "one\0cut"s, {L"one"}},             // no closing 0
        {numbers + "\xFF\xC3\0"s, {L"\uFFFD\uFFFD"}},  // no UTF-8
    };
    for (const auto& [payload, descriptions] : cases) {
        ioa::ProductData_t data;
        data.AcceptFrame(iol::Frame_t(255, Payload(payload)));
        EXPECT_EQ(data.productId, 263);
        EXPECT_EQ(data.softwareVersion, -2);
        EXPECT_EQ(data.descriptions, descriptions);
        ioa::ProductDataExt_t extended;
        extended.AcceptFrame(iol::Frame_t(248, Payload(payload.substr(4))));
        EXPECT_EQ(extended.descriptions, descriptions);
    }
    EXPECT_THROW(ioa::ProductData_t().AcceptFrame(iol::Frame_t(255, Payload("\x07\x01\xFE"))), iol::BadFrame_t);
    ioa::ProductData_t sent;
    sent.productId = 0x4241;
    sent.descriptions = {L"x", L""};
    EXPECT_EQ(sent.ProduceFrame().Bytes(), Payload("AB\0\0x\0\0"s));
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

TEST(PvtData, AccessorsFollowTheFix) {
    PvtData_t pvt;
    pvt.latitude = -1.0;
    for (unsigned short fix = 2; fix < 7; ++fix) {
        pvt.fix = fix;
        EXPECT_EQ(pvt.Position(), geo::Position_t(-1.0, 0.0));
        EXPECT_EQ(pvt.Alt().IsKnown(), fix == 3 || fix == 5) << fix;
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
    EXPECT_GT(seconds(0, 1e300, 0), 0);
}

TEST(PvtData, FixWithoutFiniteNumbersIsABadFrameAndWithoutAFixNobodyLooks) {
    for (double PvtData_t::*field : {&PvtData_t::timeOfWeek, &PvtData_t::latitude, &PvtData_t::longitude}) {
        PvtData_t pvt;
        pvt.*field = std::numeric_limits<double>::quiet_NaN();
        pvt.fix = 1;
        EXPECT_NO_THROW(PvtData_t().AcceptFrame(pvt.ProduceFrame()));
        pvt.fix = 2;
        EXPECT_THROW(PvtData_t().AcceptFrame(pvt.ProduceFrame()), iol::BadFrame_t);
    }
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
