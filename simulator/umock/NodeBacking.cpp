#include "simulator/umock/NodeBacking.hpp"

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <mqueue.h>
#include <pty.h>
#include <unistd.h>

namespace {

// umockdev does not emulate lseek, and a terminal can't: libusb rewinds the node before it reads the descriptors from
// it, and umockdev's read starts at the beginning anyway.
std::atomic<bool> gForgivingSeek = false;

}  // namespace

extern "C" off_t lseek(int descriptor, off_t offset, int whence) noexcept {
    static const auto real = reinterpret_cast<off_t (*)(int, off_t, int)>(dlsym(RTLD_NEXT, "lseek"));
    const off_t result = real(descriptor, offset, whence);
    return result < 0 && errno == ESPIPE && gForgivingSeek ? 0 : result;
}

namespace simulator {
namespace {

void check(bool right, const char* what) {
    if (!right) fail(std::string(what) + ": " + std::strerror(errno));
}

}  // namespace

void fail(const std::string& what) {
    std::fprintf(stderr, "The emulated USB bus does not work: %s\n", what.c_str());
    std::abort();
}

std::string format(const char* pattern, ...) {
    char text[512];
    va_list values;
    va_start(values, pattern);
    std::vsnprintf(text, sizeof text, pattern, values);
    va_end(values);
    return text;
}

void NodeBacking::forgiveSeeks(bool forgive) {
    gForgivingSeek = forgive;
}

NodeBacking::NodeBacking(UmockUsb::Node node) {
    if (node == UmockUsb::Node::Queue) {
        mq_attr attributes{};
        attributes.mq_maxmsg = attributes.mq_msgsize = 1;
        static std::atomic<int> made = 0;
        const std::string name = format("/trovik.%d.%d", getpid(), ++made);
        mQueue = platform::FileDescriptor(
            mq_open(name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NONBLOCK | O_CLOEXEC, 0600, &attributes));
        check(bool(mQueue), "mq_open");
        mq_unlink(name.c_str());
        mTarget = format("/proc/%d/fd/%d", getpid(), mQueue.get());
    } else {
        int master = -1, slave = -1;
        char name[64];
        termios raw{};
        cfmakeraw(&raw);
        check(openpty(&master, &slave, name, &raw, nullptr) == 0, "openpty");
        mMaster = platform::FileDescriptor(master);
        mSlave = platform::FileDescriptor(slave);
        mTarget = name;
    }
    setReady(false);
}

void NodeBacking::setReady(bool ready) {
    if (ready == mReady) return;
    mReady = ready;
    char byte = 0;
    if (mQueue) {
        check((ready ? mq_receive(mQueue.get(), &byte, 1, nullptr) : mq_send(mQueue.get(), &byte, 1, 0)) >= 0,
              "message queue");
    } else if (mMaster) {
        check(tcflow(mSlave.get(), ready ? TCOON : TCOOFF) == 0, "tcflow");
    }
}
}  // namespace simulator
