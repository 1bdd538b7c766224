#include "libs/IOU/IOU_UsbPacket.hpp"

#include <gtest/gtest.h>

#include "UTL/UTL_HexDump.hpp"

namespace {

using Bytes = std::vector<unsigned char>;

TEST(UsbPacket, IsTakenOnlyWithAWholeHeaderAKnownLayerAndTheSizeItClaims) {
    struct {
        char const* what;
        Bytes bytes;
        bool isTaken;
    } const cases[] = {
        {"no bytes", {}, false},
        {"eleven bytes", {20, 0, 0, 0, 10, 0, 0, 0, 0, 0, 0}, false},
        {"empty payload", {20, 0, 0, 0, 10, 0, 0, 0, 0, 0, 0, 0}, true},
        {"reserved fields are not looked at", {20, 9, 9, 9, 10, 0, 9, 9, 0, 0, 0, 0}, true},
        {"control packet", {0, 0, 0, 0, 6, 0, 0, 0, 4, 0, 0, 0, 1, 2, 3, 4}, true},
        {"layer 1", {1, 0, 0, 0, 10, 0, 0, 0, 0, 0, 0, 0}, false},
        {"layer 21", {21, 0, 0, 0, 10, 0, 0, 0, 0, 0, 0, 0}, false},
        {"claims more", {20, 0, 0, 0, 10, 0, 0, 0, 5, 0, 0, 0, 1, 2, 3, 4}, false},
        {"claims less", {20, 0, 0, 0, 10, 0, 0, 0, 3, 0, 0, 0, 1, 2, 3, 4}, false},
        {"claims 4 GiB", {20, 0, 0, 0, 10, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF, 1}, false},
        {"size in the high bytes counts", {20, 0, 0, 0, 10, 0, 0, 0, 1, 0, 0, 1, 1}, false},
    };
    for (auto const& c : cases) EXPECT_EQ(iou::MakeUsbPacket(c.bytes).has_value(), c.isTaken) << c.what;
}

TEST(UsbPacket, WrittenOneReadsBackFieldByField) {
    Bytes bytes(100, 0xEE);  // what the storage held before must not show
    iou::WriteUsbPacket(iou::Layer_t::Application, 0x01FF, Bytes{0xAE, 0x00}, bytes);
    EXPECT_EQ(bytes, (Bytes{20, 0, 0, 0, 0xFF, 0x01, 0, 0, 2, 0, 0, 0, 0xAE, 0x00}));
    auto const packet = iou::MakeUsbPacket(bytes);
    ASSERT_TRUE(packet);
    EXPECT_EQ(packet->layer, iou::Layer_t::Application);
    EXPECT_EQ(packet->id, 0x01FF);
    EXPECT_EQ(Bytes(packet->data.begin(), packet->data.end()), (Bytes{0xAE, 0x00}));
}

TEST(UsbPacket, ControlValueNeedsLayerIdAndFourBytes) {
    auto const value = [](iou::Layer_t layer, std::uint16_t id, Bytes const& data) {
        Bytes bytes;
        iou::WriteUsbPacket(layer, id, data, bytes);
        return iou::MakeUsbPacket(bytes)->ControlValue(6);
    };
    EXPECT_EQ(value(iou::Layer_t::UsbProtocol, 6, {0x78, 0x56, 0x34, 0xF2}), 0xF2345678U);
    EXPECT_FALSE(value(iou::Layer_t::Application, 6, {1, 2, 3, 4}));
    EXPECT_FALSE(value(iou::Layer_t::UsbProtocol, 7, {1, 2, 3, 4}));
    EXPECT_FALSE(value(iou::Layer_t::UsbProtocol, 6, {1, 2, 3}));
    EXPECT_FALSE(value(iou::Layer_t::UsbProtocol, 6, {1, 2, 3, 4, 5}));
}

TEST(HexDump, HasRowsOfSixteenAndNothingAfterAFullOne) {
    EXPECT_EQ(utl::HexDump({}), "");
    EXPECT_EQ(utl::HexDump(Bytes{0x41, 0x7F, 0x80, 0x20}),
              "0000: 41 7f 80 20 " + std::string(12 * 3, ' ') + "  A.. \n");
    Bytes sixteen(16, 'a');
    std::string const row = "0000: 61 61 61 61 61 61 61 61 61 61 61 61 61 61 61 61   aaaaaaaaaaaaaaaa\n";
    EXPECT_EQ(utl::HexDump(sixteen), row);
    sixteen.push_back(0);
    EXPECT_EQ(utl::HexDump(sixteen), row + "0010: 00 " + std::string(15 * 3, ' ') + "  .\n");
    EXPECT_NE(utl::HexDump(Bytes(0x10001, 0)).find("\nfff0: "), std::string::npos);
    EXPECT_NE(utl::HexDump(Bytes(0x10001, 0)).find("\n10000: 00 "), std::string::npos);
}

}  // namespace
