#pragma once

#include "platform/IOReturn.hpp"
#include "platform/common/FileDescriptor.hpp"

#include <chrono>
#include <functional>
#include <string>

namespace platform {

/// Opens a file as open(2) does: a descriptor, or -1 and errno.
using NodeOpener = std::function<int(const std::string& node)>;

/// Opens for reading and writing, never as a controlling terminal.
int openReadWrite(const std::string& node);

/// How long after a node has appeared "access denied" may still be udev being late.
inline constexpr std::chrono::milliseconds kPermissionGrace{2000};

/// How much of the grace is left to a node, from 0 to kPermissionGrace. Any thread.
std::chrono::nanoseconds permissionGraceLeft(const std::string& node);

/// Opens a device's node. Just after an attach udev may still be setting permissions: denied access is tried again, at
/// each change of the node's attributes, until it has been there for kPermissionGrace.
/// @return kIOReturnNotPermitted when access stays denied, kIOReturnNoDevice when the node has gone
/// Blocks for kPermissionGrace at most. Any thread.
IOReturn openUsbNode(const std::string& node, FileDescriptor& descriptor, const NodeOpener& opener = openReadWrite);

}  // namespace platform
