#pragma once

#include <cstdarg>
#include <cstddef>

/// Formats like vsnprintf where that is easy: %s, %c, %d, %i, %u, %x and %%, without flags, width or precision, with or
/// without l, ll or z. Most log calls are no more than that, and the C library takes three times as long for them, most
/// of it to bring its code back into the cache for a call every now and then.
/// @param length  without a terminating zero, which is not written
/// @return false when the format has something else in it or the text does not fit; the arguments are then used up
bool ddFormatPlainly(char* buffer, std::size_t size, std::size_t& length, const char* format, std::va_list arguments);
