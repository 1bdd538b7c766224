#pragma once

#include "IOL/IOL_Exception.hpp"
#include "IOL/IOL_Packet.hpp"

#include <set>
#include <string>

// Small records, one packet each. A payload that is too short makes AcceptFrame throw iol::BadFrame_t; surplus bytes
// are ignored. Numbers are little-endian.

namespace ioa {

/// Frame 38, device to host: the unit id, unsigned 32.
class UnitIdPacket_t : public iol::Packet_t {
  public:
    static constexpr unsigned short gcId = 38;  ///< @plain

    UnitIdPacket_t() : iol::Packet_t(gcId) {}
    void AcceptFrame(const iol::Frame_t& frame) override;
    iol::Frame_t ProduceFrame() const override;

    unsigned int unitId = 0;  ///< the number that the device calls itself by
};

/// Frame 1523, device to host: after how long the device takes the host for gone, unsigned 32, in the device's unit.
class DeviceDisconnectTimeout_t : public iol::Packet_t {
  public:
    static constexpr unsigned short gcId = 1523;  ///< @plain

    DeviceDisconnectTimeout_t() : iol::Packet_t(gcId) {}
    void AcceptFrame(const iol::Frame_t& frame) override;
    iol::Frame_t ProduceFrame() const override;

    unsigned int timeout = 0;  ///< in the device's unit
};

/// Frame 525, both ways: the name that the owner gave the unit, UTF-8 with a closing 0 byte.
class UnitNamePacket_t : public iol::Packet_t {
  public:
    static constexpr unsigned short gcId = 525;  ///< @plain

    explicit UnitNamePacket_t(std::wstring unitName = {});  ///< @plain
    void AcceptFrame(const iol::Frame_t& frame) override;
    iol::Frame_t ProduceFrame() const override;

    std::wstring name;  ///< may be empty
};

/// Frame 14, both ways: the device's clock.
///
/// | Offset | Width | Field |
/// |---|---|---|
/// | 0 | 1 | month |
/// | 1 | 1 | day |
/// | 2 | 2 | year |
/// | 4 | 2 | hour |
/// | 6 | 1 | minute |
/// | 7 | 1 | second |
class TimeData_t : public iol::Packet_t {
  public:
    static constexpr unsigned short gcId = 14;  ///< @plain

    TimeData_t() : iol::Packet_t(gcId) {}
    void AcceptFrame(const iol::Frame_t& frame) override;
    iol::Frame_t ProduceFrame() const override;

    /// As in the table; the channel neither checks nor converts them.
    /// @{
    unsigned char month = 0;
    unsigned char day = 0;
    unsigned short year = 0;
    unsigned short hour = 0;
    unsigned char minute = 0;
    unsigned char second = 0;
    /// @}
};

/// Frame 28, host to device: which data the device is to send unasked, as an unsigned 16 with a bit for each; no bit
/// switches all of it off.
class DataRqst_t : public iol::Packet_t {
  public:
    static constexpr unsigned short gcId = 28;  ///< @plain

    /// Number of a bit, taken modulo 32. What lies beyond bit 15 doesn't reach the device.
    enum Rqst_t : unsigned int {};

    explicit DataRqst_t(std::set<Rqst_t> initial = {});  ///< @plain
    void AcceptFrame(const iol::Frame_t& frame) override;
    iol::Frame_t ProduceFrame() const override;

    std::set<Rqst_t> requests;  ///< which data to send; empty for none
};

/// Frame 981, device to host: size of a region in bytes, signed 64, and a status, unsigned 8.
class RgnSize_t : public iol::Packet_t {
  public:
    static constexpr unsigned short gcId = 981;  ///< @plain

    RgnSize_t() : iol::Packet_t(gcId) {}
    void AcceptFrame(const iol::Frame_t& frame) override;
    iol::Frame_t ProduceFrame() const override;

    long long size = 0;        ///< bytes
    unsigned char status = 0;  ///< the device's own; the channel doesn't look at it
};

}  // namespace ioa
