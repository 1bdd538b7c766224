#include "IOA/IOA_Channel.hpp"
#include "IOA/IOA_Packet.hpp"
#include "IOA/IOA_ProductData.hpp"
#include "IOA/IOA_Protocols.hpp"
#include "IOA/IOA_PvtData.hpp"
#include "IOA/IOA_Records.hpp"
#include "libs/IOA/impl/IOA_ChannelIds.hpp"
#include "libs/IOU/IOU_UsbPacket.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace {

using Row = std::vector<std::string>;

std::string trimmed(std::string text) {
    text.erase(0, text.find_first_not_of(' '));
    return text.erase(text.find_last_not_of(' ') + 1);
}

Row cells(const std::string& line) {
    Row row;
    for (std::size_t begin = 1, end; (end = line.find('|', begin)) != std::string::npos; begin = end + 1)
        row.push_back(trimmed(line.substr(begin, end - begin)));
    return row;
}

/// The rows of a table of the page, by their first column; heading and rule are left out.
std::map<unsigned, Row> table(const std::string& name) {
    std::ifstream page(TROVIK_SOURCE_DIR "/docs/PROTOCOL.md");
    std::map<unsigned, Row> rows;
    bool isInside = false;
    for (std::string line; std::getline(page, line);) {
        if (line == "<!-- table: " + name + " -->") isInside = true;
        if (line == "<!-- end -->") isInside = false;
        if (!isInside || line.size() < 3 || line[0] != '|' || line[2] < '0' || line[2] > '9') continue;
        const Row row = cells(line);
        EXPECT_TRUE(rows.emplace(std::stoul(row.front()), row).second) << "twice: " << line;
    }
    return rows;
}

/// How many bytes a payload column promises; nothing where the length depends on what is in it.
std::optional<std::size_t> promisedSize(const std::string& payload) {
    static const std::map<std::string, std::size_t> kTypes = {{"none", 0},      {"unsigned 8", 1},  {"unsigned 16", 2},
                                                              {"signed 16", 2}, {"unsigned 32", 4}, {"signed 64", 8}};
    if (payload.find(" bytes,") != std::string::npos) return std::stoul(payload);
    std::size_t size = 0;
    for (std::size_t begin = 0; begin < payload.size();) {
        const std::size_t end = std::min(payload.find_first_of(",:", begin), payload.size());
        const auto type = kTypes.find(trimmed(payload.substr(begin, end - begin)));
        if (type == kTypes.end()) return std::nullopt;
        size += type->second;
        if (payload[end] != ',') break;
        begin = end + 1;
    }
    return size;
}

template <typename Packet>
std::pair<const unsigned, std::size_t> sizeOf() {
    const iol::Frame_t frame = Packet().ProduceFrame();
    return {frame.Id(), frame.Size()};
}

}  // namespace

TEST(ProtocolPage, NamesEachPacketWithTheSizeOfItsPayload) {
    std::map<unsigned, std::size_t> sizes = {sizeOf<ioa::CommandPacket_t>(),
                                             sizeOf<ioa::TransferCompletePacket_t>(),
                                             sizeOf<ioa::TimeData_t>(),
                                             sizeOf<ioa::DataRqst_t>(),
                                             sizeOf<ioa::UnitIdPacket_t>(),
                                             sizeOf<ioa::Packet_t<47, short>>(),
                                             sizeOf<ioa::PvtData_t>(),
                                             sizeOf<ioa::ProductDataExt_t>(),
                                             sizeOf<ioa::Protocols_t>(),
                                             sizeOf<ioa::ProductData_t>(),
                                             sizeOf<ioa::UnitNamePacket_t>(),
                                             sizeOf<ioa::RgnSizeRequestPacket_t>(),
                                             sizeOf<ioa::RgnSize_t>(),
                                             sizeOf<ioa::DeviceDisconnectTimeout_t>(),
                                             {ioa::gcProductDataRequestId, 0},
                                             {ioa::gcUnitNameRequestId, 0},
                                             {113, 0},
                                             {1500, 0}};
    for (const auto& [id, row] : table("application")) {
        SCOPED_TRACE(id);
        ASSERT_EQ(row.size(), 4u);
        const auto known = sizes.extract(id);
        ASSERT_TRUE(known) << "the code has no such packet";
        if (const auto promised = promisedSize(row[2])) {
            EXPECT_EQ(*promised, known.mapped());
        }
    }
    for (const auto& [id, size] : sizes) ADD_FAILURE() << "the page lacks packet " << id;
}

TEST(ProtocolPage, NamesTheNumbersOfTheCode) {
    const std::map<std::string, std::vector<unsigned>> tables = {
        {"usb",
         {iou::gcPacketIdDataAvailable, iou::gcPacketIdStartSession, iou::gcPacketIdSessionStarted,
          iou::gcPacketIdAskMaxPacketSize, iou::gcPacketIdMaxPacketSize}},
        {"commands",
         {ioa::CmndGetTime, ioa::CmndGetUnitId, 0x0027, ioa::CmndGetGmapRgnInfo, ioa::CmndGetProductInventory, 0x00AE,
          ioa::CmndGetInitFixData, ioa::CmndKeepAlive, ioa::CmndGetDisconnectTimeout}},
        {"times",
         {static_cast<unsigned>(ioa::Channel_t::mPcpTimeout.Milliseconds()),
          static_cast<unsigned>(iol::gcDefaultTimeout.Milliseconds())}}};
    for (const auto& [name, numbers] : tables) {
        std::vector<unsigned> page;
        for (const auto& [number, row] : table(name)) page.push_back(number);
        EXPECT_EQ(page, numbers) << name;
    }
}

TEST(ProtocolPage, ShowsTheHeaderAsItIsWritten) {
    std::vector<unsigned char> bytes;
    const std::vector<unsigned char> payload = {0xAE, 0x00};
    iou::WriteUsbPacket(iou::Layer_t::Application, 0x1234, payload, bytes);
    const auto rows = table("header");
    ASSERT_EQ(rows.size(), 6u);
    EXPECT_EQ(rows.rbegin()->first, bytes.size() - payload.size());
    std::size_t offset = 0;
    for (const auto& [begin, row] : rows) {
        EXPECT_EQ(begin, offset) << row[2];
        offset += row[1] == "n" ? payload.size() : std::stoul(row[1]);
        const unsigned value = bytes[begin] + 256u * bytes[begin + 1];
        if (row[2] == "packet id") {
            EXPECT_EQ(value, 0x1234u);
        }
        if (row[2].starts_with("layer")) {
            EXPECT_EQ(bytes[begin], 20);
        }
        if (row[2].starts_with("number of bytes")) {
            EXPECT_EQ(value, payload.size());
        }
        if (row[2] == "0") {
            EXPECT_EQ(value, 0u) << begin;
        }
    }
}
