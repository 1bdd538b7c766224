// What the two sides of the boundary share. script/try-library builds them apart, each with every compiler.
#pragma once

#include "ANT/ANT_Exception.hpp"
#include "GLO/GLO_Exception.hpp"
#include "IOA/IOA_Exception.hpp"
#include "IOL/IOL_Exception.hpp"
#include "IOL/IOL_Frame.hpp"
#include "IOU/IOU_Exception.hpp"
#include "THR/THR_Exception.hpp"
#include "WIN/WIN_Error.hpp"

#include <cstddef>

/// Throws the exception of that row of Exceptions.def. In a shared library of its own.
__attribute__((visibility("default"))) void raise(std::size_t row);
