#pragma once

#include "platform/IORegistry.hpp"

#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

namespace platform {

/// An iterator over entries that have been collected already.
class IOServiceList final : public IOIterator {
  public:
    explicit IOServiceList(std::vector<std::unique_ptr<IOService>> entries) : mEntries(std::move(entries)) {}
    std::unique_ptr<IOService> IOIteratorNext() override {
        return mNext < mEntries.size() ? std::move(mEntries[mNext++]) : nullptr;
    }

  private:
    std::vector<std::unique_ptr<IOService>> mEntries;
    std::size_t mNext = 0;
};

}  // namespace platform
