#pragma once

#include "IOU/IOU_DebugServer.hpp"
#include "WIN/WIN_Trace.hpp"

namespace iou {

/// Prints the pieces of a trace on the transport's server. Any thread.
template <typename... Pieces_t>
void Trace(const Pieces_t&... pieces) {
    win::Trace(DebugServer(), pieces...);
}

}  // namespace iou
