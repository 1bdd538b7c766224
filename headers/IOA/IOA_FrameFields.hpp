#pragma once

#include "IOL/IOL_Exception.hpp"
#include "IOL/IOL_FrameStream.hpp"
#include "IOL/IOL_Packet.hpp"

#include <cstddef>
#include <cstring>
#include <type_traits>
#include <utility>
#include <vector>

namespace ioa {

/// Values of these types lie in a payload as their bytes. Not long, of which the binary streams write 4 bytes of 8, and
/// not bool, of which they read any byte but 0 as true.
template <typename... Fields_t>
inline constexpr bool gcAreBytes = ((std::is_arithmetic_v<Fields_t> && !std::is_same_v<Fields_t, long> &&
                                     !std::is_same_v<Fields_t, unsigned long> && !std::is_same_v<Fields_t, bool>)&&...);

/// Reads the fields of a payload in their order; surplus bytes are ignored.
/// @param frame   to read from
/// @param file    of the raise site to report
/// @param line    of the raise site to report
/// @param fields  each of a type that the binary streams read
/// @throws iol::BadFrame_t  too short; the fields are unspecified
template <typename... Fields_t>
void ReadFields(const iol::Frame_t& frame, const char* file, unsigned short line, Fields_t&... fields) {
    if constexpr (gcAreBytes<Fields_t...>) {
        if (frame.Size() < (sizeof(Fields_t) + ...)) throw iol::BadFrame_t(frame, file, line);
        const unsigned char* next = frame.Data();
        ((std::memcpy(&fields, next, sizeof fields), next += sizeof fields), ...);
    } else {
        iol::FrameStream_t stream(frame);
        (stream >> ... >> fields);
        if (stream.fail()) throw iol::BadFrame_t(frame, file, line);
    }
}

/// Builds a frame whose payload is the fields in their order, in the widths of the binary streams. Records are of fixed
/// size, so the payload is put together in the storage that the frame takes over.
template <typename... Fields_t>
iol::Frame_t WriteFields(unsigned short id, const Fields_t&... fields) {
    static_assert(gcAreBytes<Fields_t...>);
    std::vector<unsigned char> payload((sizeof(Fields_t) + ...));
    unsigned char* next = payload.data();
    ((std::memcpy(next, &fields, sizeof fields), next += sizeof fields), ...);
    return iol::Frame_t(id, std::move(payload));
}

}  // namespace ioa
