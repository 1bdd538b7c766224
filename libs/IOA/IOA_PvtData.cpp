#include "IOA/IOA_PvtData.hpp"

#include "GLO/GLO_Assert.hpp"
#include "IOA/IOA_FrameFields.hpp"

#include <algorithm>
#include <cmath>

namespace ioa {
namespace {

constexpr char gcFile[] = "libs/IOA/IOA_PvtData";
constexpr double gcSecondsPerDay = 86400;

}  // namespace

PvtData_t::PvtData_t(unsigned short product, short version)
    : iol::Packet_t(gcId), productId(product), softwareVersion(version) {}

void PvtData_t::AcceptFrame(const iol::Frame_t& frame) {
    iol::Packet_t::AcceptFrame(frame);
    auto& [f1, f2, f3, f4] = floats1To4;
    auto& [f9, f10, f11, f12] = floats9To12;
    ReadFields(frame, gcFile, __LINE__, f1, f2, f3, f4, fix, timeOfWeek, latitude, longitude, f9, f10, f11, f12,
               leapSeconds, dayCount);
    // Nobody above could do anything with such a position, and no time can be made of it.
    if (HasFix() && !(std::isfinite(timeOfWeek) && std::isfinite(latitude) && std::isfinite(longitude))) {
        throw iol::BadFrame_t(frame, gcFile, __LINE__);
    }
}

iol::Frame_t PvtData_t::ProduceFrame() const {
    const auto& [f1, f2, f3, f4] = floats1To4;
    const auto& [f9, f10, f11, f12] = floats9To12;
    return WriteFields(gcId, f1, f2, f3, f4, fix, timeOfWeek, latitude, longitude, f9, f10, f11, f12, leapSeconds,
                       dayCount);
}

geo::Position_t PvtData_t::Position() const {
    glo::Assert(HasFix(), gcFile, __LINE__);
    return geo::Position_t(latitude, longitude);
}

glo::Optional_t<float> PvtData_t::Alt() const {
    glo::Assert(HasFix(), gcFile, __LINE__);
    if (fix != 3 && fix != 5) return {};
    return floats1To4[0];
}

glo::Time_t PvtData_t::Time() const {
    glo::Assert(HasFix(), gcFile, __LINE__);
    // A finite but absurd time of week must not overflow the whole seconds.
    constexpr double gcLimit = 1e15;
    const double seconds = dayCount * gcSecondsPerDay + timeOfWeek - leapSeconds;
    return glo::Time_t::GpsEpoch() + std::llround(std::clamp(seconds, -gcLimit, gcLimit));
}

}  // namespace ioa
