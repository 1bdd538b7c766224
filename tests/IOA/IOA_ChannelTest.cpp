#include "FTX/FTX_Channel.hpp"
#include "GLO/GLO_Exception.hpp"
#include "IOA/IOA_Channel.hpp"
#include "IOA/IOA_Exception.hpp"
#include "IOA_Support.hpp"
#include "platform/Platform.hpp"
#include "tests/support/ScriptedLink.hpp"

#include <gtest/gtest.h>

namespace {

using namespace support;

const WireFrame kRequest{254, {}};
const WireFrame kAsyncOff{28, {0, 0}};

struct Channel : testing::Test {
    ManualClock clock;
    platform::PlatformScope scope{{.clock = &clock}};
    ScriptedLink link{clock};

    ScriptedLink& ProductArrives(int product, int version, std::uint64_t delay = 0) {
        ioa::ProductData_t data;
        data.productId = static_cast<unsigned short>(product);
        data.softwareVersion = static_cast<short>(version);
        data.descriptions = {L"Model Software Version 2.02"};
        return link.Arrives(255, data.ProduceFrame().Bytes(), delay);
    }

    ScriptedLink& ProtocolsArrive(const std::string& text, std::uint64_t delay = 0) {
        return link.Arrives(253, ProtocolsFrom(text).ProduceFrame().Bytes(), delay);
    }

    /// A channel after its identification, with the record of that exchange cleared.
    std::unique_ptr<ftx::Channel_t> Identified(const std::string& protocols = "A001") {
        ProductArrives(7, 202);
        ProtocolsArrive(protocols).Arrives(248);
        auto channel = std::make_unique<ftx::Channel_t>(link);
        link.sent.clear();
        link.receiveTimeouts.clear();
        return channel;
    }
};

TEST_F(Channel, IdentificationAsksOnceTakesThreeAnswersAndSwitchesUnaskedDataOff) {
    ProductArrives(7, 202, 2999);
    ProtocolsArrive("P000 A010", 999).Arrives(248, {'x', 0}, 999);
    const ftx::Channel_t channel(link);
    EXPECT_EQ(channel.Product().softwareVersion, 202);
    EXPECT_EQ(channel.ProductExt().descriptions, (std::vector<std::wstring>{L"x"}));
    EXPECT_EQ(TextOf(channel.Protocols()), "P000 A010 A001");
    EXPECT_EQ(link.sent, (std::vector{kRequest, kAsyncOff}));
    EXPECT_EQ(link.sendTimeouts, (Timeouts{3000, 3000}));
    EXPECT_EQ(link.receiveTimeouts, (Timeouts{3000, 1000, 1000}));
}

TEST_F(Channel, ProtocolListIsMendedByProductAndVersion) {
    const std::vector<std::tuple<int, int, std::string, std::string>> cases = {
        {7, 0, "", "L001 A010 A100 D100 A200 D200 D100 A500 D500 P000 A000 A600 D600 A700 D700"},
        {22, 0, "A010", "A010 A903 A001"},
        {22, 0, "A903 A001", "A903 A001"},
        {118, 203, "A001", "A001 A900"},
        {118, 204, "A010", "A010 A001"},
        {60000, 1, "A001 A010", "A001 A010"},
    };
    for (const auto& [product, version, sent, mended] : cases) {
        ProductArrives(product, version);
        ProtocolsArrive(sent).Arrives(248);
        EXPECT_EQ(TextOf(ioa::Channel_t(link).Protocols()), mended);
    }
}

TEST_F(Channel, OptionalAnswerCountsForASecondAndALateOneIsNotTakenForTheNext) {
    const std::pair<std::uint64_t, std::uint64_t> cases[] = {{1000, 1000}, {1000, 1001}, {1001, 1000}, {1001, 1001}};
    for (const auto& [list, extended] : cases) {  // milliseconds, each after the answer before it
        SCOPED_TRACE(testing::Message() << list << ", " << extended);
        ProductArrives(1344, 0);
        ProtocolsArrive("A010", list).Arrives(248, {'x', 0}, extended).Arrives(38, {4, 3, 2, 1});
        ioa::Channel_t channel(link);
        EXPECT_EQ(TextOf(channel.Protocols()), list <= 1000 ? "A010 A001" : "L001 A010 P000 A000 A600 D600 A700 D700");
        EXPECT_EQ(channel.ProductExt().descriptions.size(), extended <= 1000 ? 1U : 0U);
        EXPECT_EQ(channel.GetUnitID(), 0x01020304U) << "passes over what came too late";
        EXPECT_EQ(link.Pending(), 0U);
    }
}

TEST_F(Channel, FailuresOfTheIdentificationPassThrough) {
    const auto open = [this] { ioa::Channel_t{link}; };
    EXPECT_THROW(open(), glo::Timeout_t);
    link.Arrives(255, {1, 2, 3});
    EXPECT_THROW(open(), iol::BadFrame_t);
    ProductArrives(7, 0);
    ProtocolsArrive("A001").Fails([]() -> iol::Frame_t { throw iol::Exception_t("tests", 1, {}); });
    EXPECT_THROW(open(), iol::Exception_t);
    EXPECT_EQ(link.sent.back(), kRequest) << "given up, and the data is not switched off before the last answer";
    link.sent.clear();
    for (const auto& [product, version] : {std::pair(60000, 100), {1201, -1}}) {
        ProductArrives(product, version);
        EXPECT_EQ(raisedAt<ioa::InvalidProtocolInformation_t>(open), "libs/IOA/impl/IOA_Channel 86");
    }
    EXPECT_EQ(link.sent, (std::vector{kRequest, kRequest}));
}

/// What arrives, what is called, what that sends and the time-outs with which it waits.
using Operation =
    std::tuple<std::vector<WireFrame>, std::function<void(ioa::Channel_t&)>, std::vector<WireFrame>, Timeouts>;

template <typename Record>
std::function<void(ioa::Channel_t&)> Fills(void (ioa::Channel_t::*get)(Record&)) {
    return [get](ioa::Channel_t& channel) {
        Record record(700);
        (channel.*get)(record);
        EXPECT_EQ(record.data, Bytes{1});
    };
}

// clang-format off
TEST_F(Channel, OperationsSendAndAwaitTheirPackets) {
    using C = ioa::Channel_t;
    const std::vector<Operation> operations = {
        {{}, [](C& c) { c.SendIopCommand(10, {0xAE, 0x00}); }, {{10, {0xAE, 0x00}}}, {}},
        {{{38, {4, 3, 2, 1}}}, [](C& c) { EXPECT_EQ(c.GetUnitID(), 0x01020304U); }, {{10, {14, 0}}}, {3000}},
        {{{525, {'u', 0}}}, [](C& c) { EXPECT_EQ(c.GetUnitName(), L"u"); }, {{526, {}}}, {3000}},
        {{}, [](C& c) { c.SetUnitName(L"n"); }, {{525, {'n', 0}}}, {}},
        {{{14, {1, 2, 3, 0, 4, 0, 5, 6}}}, [](C& c) { EXPECT_EQ(c.GetTimeData().second, 6); }, {{10, {5, 0}}}, {3000}},
        {{}, [](C& c) { c.SetTimeData(ioa::TimeData_t()); }, {{14, Bytes(8)}, {47, {0, 0}}}, {}},
        {{}, [](C& c) { c.SendKeepAlive(); }, {{10, {0xAC, 0x02}}}, {}},
        {{{1523, {9, 0, 0, 0}}}, [](C& c) { EXPECT_EQ(c.GetDeviceDisconnectTimeout(), 9U); }, {{10, {173, 2}}}, {3000}},
        {{{12, {7, 0}}}, [](C& c) { EXPECT_EQ(c.GetXferCmplt(7), 7); }, {}, {3000}},
        {{{12, {8, 0}}}, [](C& c) { EXPECT_EQ(raisedAt<ioa::Exception_t>([&] { c.GetXferCmplt(7); }),
                                              "libs/IOA/IOA_Channel 554"); }, {}, {3000}},
        {{}, [](C& c) { c.SendTransferComplete(7); }, {{12, {7, 0}}}, {}},
        {{{248, {'e', 0}}}, [](C& c) { EXPECT_EQ(c.ProductDataExt().descriptions.size(), 1U); }, {kRequest}, {1000}},
        {{}, [](C& c) { EXPECT_TRUE(c.ProductDataExt().descriptions.empty()); }, {kRequest}, {1000}},
        {{{51, Bytes(64)}}, [](C& c) { EXPECT_EQ(c.GetPvt().softwareVersion, 202); }, {}, {3000}},
        {{{700, {1}}}, Fills(&C::GetInitFixData), {{10, {0x84, 0x02}}}, {3000}},
        {{{700, {1}}}, Fills(&C::GetProductInventory), {{10, {151, 0}}}, {3000}},
        {{{700, {1}}}, Fills(&C::GetGmapRgnInfo), {{10, {63, 0}}}, {3000}},
        {{{981, {0, 1, 0, 0, 0, 0, 0, 0, 9}}}, [](C& c) { EXPECT_EQ(c.GetRgnSize(255), 256); }, {{980, {255}}}, {3000}},
        {{{981, Bytes(9, 0xFF)}}, [](C& c) { EXPECT_EQ(c.GetRgnSize(0), 0); }, {{980, {0}}}, {3000}},
        {{}, [](C& c) { EXPECT_THROW(c.GetRgnSize(256), glo::OutOfRange_t); }, {}, {}},
        {{}, [](C& c) { c.DelayForUnit(); }, {}, {}}};
    // clang-format on
    const auto channel = Identified();
    for (const auto& [answers, run, sent, waits] : operations) {
        SCOPED_TRACE(testing::PrintToString(sent));
        for (const auto& [id, payload] : answers) link.Arrives(id, payload);
        run(*channel);
        EXPECT_EQ(std::exchange(link.sent, {}), sent);
        EXPECT_EQ(std::exchange(link.receiveTimeouts, {}), waits);
        EXPECT_EQ(link.Pending(), 0U);
    }
    EXPECT_EQ(link.sendTimeouts, Timeouts(link.sendTimeouts.size(), 3000));
    EXPECT_TRUE(channel->ProductExt().descriptions.empty()) << "the stored record is not refreshed";
    ASSERT_EQ(clock.Sleeps().size(), 1U);
    EXPECT_NEAR(clock.Sleeps()[0], 0.2, 1e-9);
}

TEST_F(Channel, DisplayNameIsTheOwnersElseTheModelsWithTheExtraText) {
    const auto unnamed = Identified("A001");
    EXPECT_EQ(unnamed->DisplayName(L"x"), L"Model (x)");
    EXPECT_TRUE(link.sent.empty());
    const auto named = Identified("A001 A601");
    link.Arrives(525, {'m', 'y', 0}).Arrives(525, {0}).Arrives(525, {'c', 'u', 't'});
    link.Fails([]() -> iol::Frame_t { throw 1; });
    EXPECT_EQ(named->DisplayName(L"x"), L"my");
    for (const char* what : {"an empty name", "a bad frame", "no exception of the library", "no answer at all"})
        EXPECT_EQ(named->DisplayName(L""), L"Model") << what;
}

}  // namespace
