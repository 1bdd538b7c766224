#pragma once

#include "platform/IORegistry.hpp"
#include "simulator/bus/BusCore.hpp"

#include <memory>
#include <vector>

namespace simulator {

/// An iterator over attached devices.
std::unique_ptr<platform::IOIterator> makeDeviceIterator(const std::shared_ptr<BusCore>& core,
                                                         const std::vector<Attachment>& attachments);

/// One attached device.
std::unique_ptr<platform::IOService> makeDeviceEntry(std::shared_ptr<BusCore> core, Attachment attachment);

}  // namespace simulator
