#pragma once

#include "GEO/GEO_Position.hpp"
#include "GLO/GLO_Optional.hpp"
#include "GLO/GLO_Time.hpp"
#include "IOL/IOL_Exception.hpp"
#include "IOL/IOL_Packet.hpp"

#include <array>

namespace ioa {

/// Where the device is, how it moves and what time it is there.
///
/// Frame 51, device to host, 64 bytes, little-endian:
///
/// | Offset | Width | Field |
/// |---|---|---|
/// | 0 | 4 x 4 | floats 1 to 4 |
/// | 16 | 2 | fix, unsigned: 2 and more is a position, 3 and 5 one with altitude |
/// | 18 | 8 | time of week in seconds, double |
/// | 26 | 8 | latitude in radians, double |
/// | 34 | 8 | longitude in radians, double |
/// | 42 | 4 x 4 | floats 9 to 12 |
/// | 58 | 2 | leap seconds, signed |
/// | 60 | 4 | day count since the GPS epoch, signed |
class PvtData_t : public iol::Packet_t {
  public:
    static constexpr unsigned short gcId = 51;  ///< @plain

    /// @param product  of the device that is going to send the record
    /// @param version  of its software
    explicit PvtData_t(unsigned short product = 0, short version = 0);

    /// @throws iol::BadFrame_t  too short, or a fix of 2 and more whose position or time is no finite number
    void AcceptFrame(const iol::Frame_t& frame) override;
    iol::Frame_t ProduceFrame() const override;

    /// @name With a fix of 2 and more
    /// Asking without one is a mistake of the program and an assertion.
    /// @{
    geo::Position_t Position() const;    ///< @plain
    glo::Optional_t<float> Alt() const;  ///< the record's first float; unknown without an altitude in the fix
    glo::Time_t Time() const;            ///< in UTC, to the nearest second
    /// @}

    /// As in the table.
    /// @{
    std::array<float, 4> floats1To4{};
    unsigned short fix = 0;
    double timeOfWeek = 0;
    double latitude = 0;
    double longitude = 0;
    std::array<float, 4> floats9To12{};
    short leapSeconds = 0;
    int dayCount = 0;
    /// @}

    /// Of the device; no part of the record.
    /// @{
    unsigned short productId;
    short softwareVersion;
    /// @}

  private:
    bool HasFix() const { return fix >= 2; }
};

}  // namespace ioa
