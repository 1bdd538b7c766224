#pragma once

#include "IOL/IOL_Exception.hpp"
#include "IOL/IOL_FrameStream.hpp"
#include "IOL/IOL_Packet.hpp"

#include <array>
#include <cstring>
#include <type_traits>

namespace ioa {

/// Reads the fields of a payload in their order; surplus bytes are ignored.
/// @param frame   to read from
/// @param file    of the raise site to report
/// @param line    of the raise site to report
/// @param fields  each of a type that the binary streams read
/// @throws iol::BadFrame_t  too short; fields before the missing one have been read
template <typename... Fields_t>
void ReadFields(const iol::Frame_t& frame, const char* file, unsigned short line, Fields_t&... fields) {
    iol::FrameStream_t stream(frame);
    (stream >> ... >> fields);
    if (stream.fail()) throw iol::BadFrame_t(frame, file, line);
}

/// Builds a frame whose payload is the fields in their order, in the widths of the binary streams. Records are of fixed
/// size, so the payload is put together on the stack and copied once.
template <typename... Fields_t>
iol::Frame_t WriteFields(unsigned short id, const Fields_t&... fields) {
    // A long would lose half of itself on its way through a stream, a bool its type.
    static_assert(((std::is_arithmetic_v<Fields_t> && !std::is_same_v<Fields_t, long> &&
                    !std::is_same_v<Fields_t, unsigned long> && !std::is_same_v<Fields_t, bool>)&&...));
    std::array<unsigned char, (sizeof(Fields_t) + ...)> payload;
    unsigned char* next = payload.data();
    ((std::memcpy(next, &fields, sizeof fields), next += sizeof fields), ...);
    return iol::Frame_t(id, payload.data(), static_cast<unsigned int>(payload.size()));
}

}  // namespace ioa
