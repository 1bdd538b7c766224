#pragma once

#include "platform/common/FileDescriptor.hpp"
#include "simulator/engine/Types.hpp"

#include <cstdint>
#include <functional>
#include <linux/aio_abi.h>
#include <memory>
#include <vector>

namespace simulator {

/// Transfers on FunctionFS endpoints without a thread for each: the kernel's own asynchronous I/O, whose completions
/// wake an event descriptor. (The C library's asynchronous I/O is made of blocking threads.) One thread.
class Aio {
  public:
    /// @param result  bytes moved, or a negative errno (-ESHUTDOWN when the host is gone or has chosen a configuration)
    /// @param data    of a read: what arrived
    using Completion = std::function<void(int result, const Bytes& data)>;

    Aio();
    ~Aio();  ///< waits for what is under way; take the device off the bus first
    Aio(const Aio&) = delete;
    Aio& operator=(const Aio&) = delete;

    int event() const { return mEvent.get(); }  ///< readable when something has completed

    /// Starts one transfer. @return 0, or an errno with nothing started
    int read(int endpoint, std::size_t size, Completion completion);
    int write(int endpoint, Bytes bytes, Completion completion);

    /// Runs the completions of what has ended. Never blocks.
    void collect();

    std::size_t pending() const { return mPending.size(); }

  private:
    struct Transfer {
        iocb control{};
        Bytes buffer;
        Completion completion;
    };

    int submit(int endpoint, std::uint16_t operation, Bytes buffer, Completion completion);

    aio_context_t mContext = 0;
    platform::FileDescriptor mEvent;
    std::vector<std::unique_ptr<Transfer>> mPending;
};

}  // namespace simulator
