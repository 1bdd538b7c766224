// The operations of a channel that has identified its device; impl/IOA_Channel.cpp has the identification.
#include "IOA/IOA_Channel.hpp"

#include "GLO/GLO_Exception.hpp"
#include "IOA/IOA_Exception.hpp"
#include "IOA/IOA_Packet.hpp"
#include "THR/THR_CancelRequested.hpp"
#include "THR/THR_Delay.hpp"
#include "impl/IOA_ChannelIds.hpp"

#include <utility>

namespace ioa {
namespace {

constexpr char gcFile[] = "libs/IOA/IOA_Channel";
constexpr unsigned short gcWrongTransferLine = 554;  // a stable identifier that support knows, not this file's line
constexpr unsigned int gcUnitDelay = 200;            // milliseconds
constexpr unsigned short gcRegionLimit = 256;

}  // namespace

void Channel_t::SendPacket(const iol::Packet_t& packet) const {
    mLink.SendPacket(packet, iol::gcDefaultTimeout);
}

void Channel_t::GetPacket(iol::Packet_t& packet) const {
    mLink.GetPacket(packet, iol::gcDefaultTimeout);
}

void Channel_t::SendIopCommand(unsigned short command, std::vector<unsigned char> data) {
    SendPacket(IopCommandPacket_t(command, std::move(data)));
}

void Channel_t::SendCommand(unsigned short command) const {
    SendPacket(CommandPacket_t(command));
}

void Channel_t::RequestAndGet(unsigned short command, iol::Packet_t& reply) const {
    SendCommand(command);
    GetPacket(reply);
}

unsigned int Channel_t::GetUnitID() {
    UnitIdPacket_t reply;
    RequestAndGet(CmndGetUnitId, reply);
    return reply.unitId;
}

std::wstring Channel_t::GetUnitName() {
    SendPacket(iol::Packet_t(gcUnitNameRequestId));
    UnitNamePacket_t reply;
    GetPacket(reply);
    return reply.name;
}

void Channel_t::SetUnitName(const std::wstring& name) {
    SendPacket(UnitNamePacket_t(name));
}

TimeData_t Channel_t::GetTimeData() {
    TimeData_t reply;
    RequestAndGet(CmndGetTime, reply);
    return reply;
}

void Channel_t::SetTimeData(const TimeData_t& time) {
    SendPacket(time);
    SendPacket(Packet_t<47, short>(0));
}

void Channel_t::SendKeepAlive() const {
    SendCommand(CmndKeepAlive);
}

unsigned int Channel_t::GetDeviceDisconnectTimeout() const {
    DeviceDisconnectTimeout_t reply;
    RequestAndGet(CmndGetDisconnectTimeout, reply);
    return reply.timeout;
}

void Channel_t::DelayForUnit() {
    thr::Delay(gcUnitDelay, thr::CancelRequestedFunctor_t());
}

void Channel_t::CmndAsyncOff() {
    SendPacket(DataRqst_t());
}

unsigned short Channel_t::GetXferCmplt(unsigned short command) {
    TransferCompletePacket_t reply;
    GetPacket(reply);
    if (reply.value != command) throw Exception_t(gcFile, gcWrongTransferLine);
    return command;
}

void Channel_t::SendTransferComplete(unsigned short command) {
    SendPacket(TransferCompletePacket_t(command));
}

ProductDataExt_t Channel_t::ProductDataExt() {
    SendPacket(iol::Packet_t(gcProductDataRequestId));
    ProductDataExt_t reply;
    GetOptionalPacket(reply);
    return reply;
}

PvtData_t Channel_t::GetPvt() {
    PvtData_t reply(mProductData.productId, mProductData.softwareVersion);
    GetPacket(reply);
    return reply;
}

void Channel_t::GetInitFixData(InitFixData_t& record) {
    RequestAndGet(CmndGetInitFixData, record);
}

void Channel_t::GetProductInventory(ProductInventory_t& record) {
    RequestAndGet(CmndGetProductInventory, record);
}

void Channel_t::GetGmapRgnInfo(GmapRgnInfo_t& record) {
    RequestAndGet(CmndGetGmapRgnInfo, record);
}

long long Channel_t::GetRgnSize(unsigned short region) {
    if (region >= gcRegionLimit) throw glo::OutOfRange_t(gcFile, __LINE__, L"Region number out of range");
    SendPacket(RgnSizeRequestPacket_t(static_cast<unsigned char>(region)));
    RgnSize_t reply;
    GetPacket(reply);
    return reply.size < 0 ? 0 : reply.size;
}

std::wstring Channel_t::DisplayName(const std::wstring& extra) {
    if (mProtocols.SupportsNaming()) {
        try {
            if (std::wstring name = GetUnitName(); !name.empty()) return name;
        } catch (...) {
            // Any failure counts as no name: a text to show must not fail an operation.
        }
    }
    std::wstring text = mProductData.DisplayName();
    if (!extra.empty()) text += L" (" + extra + L")";
    return text;
}

}  // namespace ioa
