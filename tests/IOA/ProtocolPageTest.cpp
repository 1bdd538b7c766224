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
#include <regex>
#include <string>
#include <vector>

namespace {

using Row = std::vector<std::string>;

/// The rows of a table of the page, by their first column, a number.
std::map<unsigned, Row> table(const std::string& name) {
    static const std::regex kCell("\\| ([^|]*) (?=\\|)");
    std::ifstream page(TROVIK_SOURCE_DIR "/docs/PROTOCOL.md");
    std::map<unsigned, Row> rows;
    std::string line;
    while (std::getline(page, line) && line != "<!-- table: " + name + " -->") continue;
    while (std::getline(page, line) && line != "<!-- end -->") {
        if (line.size() < 3 || line[2] < '0' || line[2] > '9') continue;  // heading and rule
        const Row row(std::sregex_token_iterator(line.begin(), line.end(), kCell, 1), {});
        EXPECT_TRUE(rows.emplace(std::stoul(row.front()), row).second) << "twice: " << line;
    }
    return rows;
}

/// How many bytes a payload column promises; nothing where the length depends on what is in it.
std::optional<std::size_t> promisedSize(const std::string& payload) {
    static const std::regex kBitsOrBytes("signed ([0-9]+)|^([0-9]+) bytes,");
    if (payload == "none") return 0;
    std::size_t size = 0;
    for (std::sregex_iterator part(payload.begin(), payload.end(), kBitsOrBytes), end; part != end; ++part)
        size += (*part)[1].matched ? std::stoul((*part)[1]) / 8 : std::stoul((*part)[2]);
    return size > 0 ? std::optional(size) : std::nullopt;
}

template <typename... Packets>
std::map<unsigned, std::size_t> sizesOf() {
    return {{Packets().Id(), Packets().ProduceFrame().Size()}...};
}

}  // namespace

TEST(ProtocolPage, NamesEachPacketWithTheSizeOfItsPayload) {
    using namespace ioa;
    auto sizes = sizesOf<CommandPacket_t, TransferCompletePacket_t, TimeData_t, DataRqst_t, UnitIdPacket_t,
                         Packet_t<47, short>, PvtData_t, ProductDataExt_t, Protocols_t, ProductData_t, UnitNamePacket_t,
                         RgnSizeRequestPacket_t, RgnSize_t, DeviceDisconnectTimeout_t>();
    const unsigned empty[] = {gcProductDataRequestId, gcUnitNameRequestId, 113, 1500};
    for (const unsigned id : empty) sizes[id] = 0;
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
    std::vector<unsigned char> written, shown;
    iou::WriteUsbPacket(iou::Layer_t::Application, 0x1234, std::vector<unsigned char>{0xAE, 0x00}, written);
    const std::map<std::string, unsigned> values = {
        {"layer", 20}, {"packet id", 0x1234}, {"number of bytes", 2}, {"payload", 0xAE}, {"0", 0}};
    for (const auto& [offset, row] : table("header")) {
        EXPECT_EQ(offset, shown.size());
        const std::string& field = row[2];
        const auto value = std::ranges::find_if(values, [&](auto& named) { return field.starts_with(named.first); });
        ASSERT_NE(value, values.end()) << field;
        const unsigned long size = row[1] == "n" ? 2 : std::stoul(row[1]);
        for (unsigned long byte = 0; byte < size; ++byte)
            shown.push_back(static_cast<unsigned char>(value->second >> 8 * byte));
    }
    EXPECT_EQ(shown, written);
}
