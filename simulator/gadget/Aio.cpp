#include "simulator/gadget/Aio.hpp"

#include <algorithm>
#include <cerrno>
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <system_error>
#include <unistd.h>

namespace simulator {
namespace {

constexpr unsigned kTransfersAtOnce = 16;

}  // namespace

Aio::Aio() : mEvent(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!mEvent || ::syscall(SYS_io_setup, kTransfersAtOnce, &mContext) != 0)
        throw std::system_error(errno, std::generic_category(), "setting up asynchronous transfers");
}

// Destroying the context cancels or waits for every transfer, so the buffers may go after it.
Aio::~Aio() {
    ::syscall(SYS_io_destroy, mContext);
}

int Aio::read(int endpoint, std::size_t size, Completion completion) {
    return submit(endpoint, IOCB_CMD_PREAD, Bytes(size), std::move(completion));
}

int Aio::write(int endpoint, Bytes bytes, Completion completion) {
    return submit(endpoint, IOCB_CMD_PWRITE, std::move(bytes), std::move(completion));
}

int Aio::submit(int endpoint, std::uint16_t operation, Bytes buffer, Completion completion) {
    auto transfer = std::make_unique<Transfer>();
    transfer->buffer = std::move(buffer);
    transfer->completion = std::move(completion);
    iocb& control = transfer->control;
    control.aio_data = reinterpret_cast<std::uintptr_t>(transfer.get());
    control.aio_lio_opcode = operation;
    control.aio_fildes = static_cast<std::uint32_t>(endpoint);
    control.aio_buf = reinterpret_cast<std::uintptr_t>(transfer->buffer.data());
    control.aio_nbytes = transfer->buffer.size();
    control.aio_flags = IOCB_FLAG_RESFD;
    control.aio_resfd = static_cast<std::uint32_t>(mEvent.get());
    iocb* list[] = {&control};
    mPending.push_back(std::move(transfer));
    if (::syscall(SYS_io_submit, mContext, 1, list) == 1) return 0;
    const int error = errno;
    mPending.pop_back();
    return error;
}

void Aio::collect() {
    std::uint64_t count = 0;
    [[maybe_unused]] const ssize_t taken = ::read(mEvent.get(), &count, sizeof count);
    io_event events[kTransfersAtOnce];
    timespec noWait{};
    const long ended = ::syscall(SYS_io_getevents, mContext, 0, kTransfersAtOnce, events, &noWait);
    for (long i = 0; i < ended; ++i) {
        const auto it = std::find_if(mPending.begin(), mPending.end(), [&](const auto& transfer) {
            return reinterpret_cast<std::uintptr_t>(transfer.get()) == events[i].data;
        });
        if (it == mPending.end()) continue;
        const std::unique_ptr<Transfer> transfer = std::move(*it);
        mPending.erase(it);
        const int result = static_cast<int>(events[i].res);
        if (result >= 0 && transfer->control.aio_lio_opcode == IOCB_CMD_PREAD)
            transfer->buffer.resize(static_cast<std::size_t>(result));
        transfer->completion(result, transfer->buffer);
    }
}

}  // namespace simulator
