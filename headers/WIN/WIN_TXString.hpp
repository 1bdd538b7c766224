#pragma once

#include <string>

/// The platform layer's text string: 32-bit characters.
using TXString = std::wstring;
