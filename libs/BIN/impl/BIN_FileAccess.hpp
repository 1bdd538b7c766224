#pragma once

#include "BIN/BIN_ios.hpp"
#include "FIL/FIL_File.hpp"
#include "GLO/GLO_Exception.hpp"

#include <algorithm>
#include <cstdint>
#include <ios>
#include <string>

namespace bin {

/// Does something with a file; what the file reports as an error becomes the stream's bad bit.
/// @return false when that happened
template <typename Action>
bool Guarded(ios& stream, Action action) {
    try {
        action();
        return true;
    } catch (const glo::FileError_t&) {
        stream.setstate(ios::badbit);
        return false;
    }
}

/// What every read starts with: nothing is read after a failure, and a read at the end is one.
inline bool Readable(ios& stream) {
    if (stream.fail()) return false;
    if (stream.eof()) stream.setstate(ios::failbit);
    return !stream.fail();
}

/// Writes n copies of a byte at the end of the file.
inline void Expand(fil::File_t& file, unsigned long n, unsigned char byte) {
    file.Seek(0, fil::File_t::From_t::End);
    const std::string block(std::min<unsigned long>(n, 4096), static_cast<char>(byte));
    for (; n > 0; n -= std::min<unsigned long>(n, block.size()))
        file.Write(block.data(), std::min<unsigned long>(n, block.size()));
}

/// Where a relative seek leads to.
/// @return false when that lies before the beginning
inline bool SeekTarget(std::uint64_t current, std::uint64_t size, long offset, std::ios_base::seekdir from,
                       unsigned long& target) {
    const std::uint64_t base = from == std::ios_base::beg ? 0 : from == std::ios_base::cur ? current : size;
    if (offset < 0 && static_cast<std::uint64_t>(-(offset + 1)) >= base) return false;
    target = base + static_cast<std::uint64_t>(offset);
    return true;
}

}  // namespace bin
