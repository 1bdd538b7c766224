#include "IOA/IOA_Records.hpp"

#include "IOA/IOA_FrameFields.hpp"
#include "WIN/WIN_Encoding.hpp"

#include <utility>

namespace ioa {
namespace {

constexpr char gcFile[] = "libs/IOA/IOA_Records";

}  // namespace

void UnitIdPacket_t::AcceptFrame(const iol::Frame_t& frame) {
    iol::Packet_t::AcceptFrame(frame);
    ReadFields(frame, gcFile, __LINE__, unitId);
}

iol::Frame_t UnitIdPacket_t::ProduceFrame() const {
    return WriteFields(gcId, unitId);
}

void DeviceDisconnectTimeout_t::AcceptFrame(const iol::Frame_t& frame) {
    iol::Packet_t::AcceptFrame(frame);
    ReadFields(frame, gcFile, __LINE__, timeout);
}

iol::Frame_t DeviceDisconnectTimeout_t::ProduceFrame() const {
    return WriteFields(gcId, timeout);
}

UnitNamePacket_t::UnitNamePacket_t(std::wstring unitName) : iol::Packet_t(gcId), name(std::move(unitName)) {}

void UnitNamePacket_t::AcceptFrame(const iol::Frame_t& frame) {
    iol::Packet_t::AcceptFrame(frame);
    iol::FrameStream_t stream(frame);
    stream.encodingg(win::Utf8Encoding());
    stream >> name;
    if (stream.fail()) throw iol::BadFrame_t(frame, gcFile, __LINE__);
}

iol::Frame_t UnitNamePacket_t::ProduceFrame() const {
    iol::FrameStream_t stream;
    stream.encodingp(win::Utf8Encoding());
    stream << name;
    glo::Assert(!stream.fail(), gcFile, __LINE__);
    return iol::Frame_t(gcId, stream);
}

void TimeData_t::AcceptFrame(const iol::Frame_t& frame) {
    iol::Packet_t::AcceptFrame(frame);
    ReadFields(frame, gcFile, __LINE__, month, day, year, hour, minute, second);
}

iol::Frame_t TimeData_t::ProduceFrame() const {
    return WriteFields(gcId, month, day, year, hour, minute, second);
}

DataRqst_t::DataRqst_t(std::set<Rqst_t> initial) : iol::Packet_t(gcId), requests(std::move(initial)) {}

void DataRqst_t::AcceptFrame(const iol::Frame_t& frame) {
    iol::Packet_t::AcceptFrame(frame);
    unsigned short bits = 0;
    ReadFields(frame, gcFile, __LINE__, bits);
    requests.clear();
    for (unsigned int bit = 0; bit < 16; ++bit) {
        if (bits >> bit & 1) requests.insert(static_cast<Rqst_t>(bit));
    }
}

iol::Frame_t DataRqst_t::ProduceFrame() const {
    unsigned int bits = 0;
    for (const Rqst_t request : requests) bits |= 1U << (request % 32);
    return WriteFields(gcId, static_cast<unsigned short>(bits & 0xFFFF));
}

void RgnSize_t::AcceptFrame(const iol::Frame_t& frame) {
    iol::Packet_t::AcceptFrame(frame);
    ReadFields(frame, gcFile, __LINE__, size, status);
}

iol::Frame_t RgnSize_t::ProduceFrame() const {
    return WriteFields(gcId, size, status);
}

}  // namespace ioa
