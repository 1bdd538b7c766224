#pragma once

#include "WIN/WIN_DebugServer.hpp"

namespace iou {

/// Where the USB transport traces its traffic: one server for the process, named "IouUsbDebug", made at the first call
/// and switched on then when the user's preference "ShowUsbDebug" is true. Any thread.
win::DebugServer_t& DebugServer();

}  // namespace iou
