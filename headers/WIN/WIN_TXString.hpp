#pragma once

#include <string>

/// @file
/// Library text, which was once a class of its own.

/// The platform layer's text string: 32-bit characters.
using TXString = std::wstring;
