#include "platform/linux/process/CrashHandler.hpp"

#include "platform/common/CrashReporter.hpp"
#include "platform/common/FileDescriptor.hpp"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <cstddef>
#include <cstring>
#include <ctime>
#include <execinfo.h>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <signal.h>
#include <system_error>
#include <unistd.h>
#include <utility>
#include <vector>

namespace platform {
namespace {

constexpr int kFrames = 128;
constexpr std::size_t kMostReports = 10;

/// Everything that the handler touches, prepared beforehand: it can neither allocate nor lock.
struct Prepared {
    char filePath[4096] = {};      ///< the prefix; the handler appends the rest in place
    std::size_t prefixLength = 0;  ///< 0 for no file
    char version[512] = {};
    const char* const* blackBox = nullptr;   ///< where the program publishes its text; null if it does not
    alignas(16) char stack[64 * 1024] = {};  ///< for the handler, on the main thread
};
constinit Prepared gPrepared;  // at hand before any constructor has run
std::atomic_flag gIsReporting = ATOMIC_FLAG_INIT;
static_assert(std::atomic<const char*>::is_always_lock_free);

/// Removes all reports with this prefix but the newest: a tool that crashes at every start must not fill the disk.
void removeOldReports(const std::string& filePrefix) {
    const std::filesystem::path prefix(filePrefix);
    const std::string name = prefix.filename().string() + '-';
    std::vector<std::pair<unsigned long, std::filesystem::path>> reports;
    std::error_code error;
    std::filesystem::directory_iterator file(prefix.parent_path(), error);
    for (; !error && file != std::filesystem::directory_iterator(); file.increment(error)) {
        const std::string text = file->path().filename().string();
        if (!text.starts_with(name) || !text.ends_with(".crash")) continue;
        unsigned long seconds = 0;
        const auto [end, failure] = std::from_chars(text.data() + name.size(), text.data() + text.size(), seconds);
        if (failure == std::errc{} && *end == '-') reports.emplace_back(seconds, file->path());
    }
    std::ranges::sort(reports, std::greater());
    for (std::size_t i = kMostReports; i < reports.size(); ++i) std::filesystem::remove(reports[i].second, error);
}

/// Text in a buffer of fixed size; what does not fit is dropped.
class SafeText {
  public:
    SafeText(char* buffer, std::size_t size, std::size_t length = 0) : mBuffer(buffer), mSize(size), mLength(length) {}

    SafeText& operator<<(const char* text) {
        while (*text && mLength + 1 < mSize) mBuffer[mLength++] = *text++;
        mBuffer[mLength] = 0;
        return *this;
    }
    SafeText& operator<<(unsigned long number) {
        char digits[24] = {};
        std::size_t at = sizeof digits - 1;
        do {
            digits[--at] = static_cast<char>('0' + number % 10);
            number /= 10;
        } while (number > 0);
        return *this << digits + at;
    }

  private:
    char* mBuffer;
    std::size_t mSize;
    std::size_t mLength;
};

void write(int descriptor, const char* text) {
    std::size_t left = std::strlen(text);
    while (left > 0) {
        const ssize_t count = ::write(descriptor, text, left);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return;
        text += count;
        left -= static_cast<std::size_t>(count);
    }
}

const char* signalName(int signal) {
    switch (signal) {
        case SIGILL:
            return "SIGILL";
        case SIGSEGV:
            return "SIGSEGV";
        case SIGABRT:
            return "SIGABRT";
        case SIGBUS:
            return "SIGBUS";
        case SIGFPE:
            return "SIGFPE";
        default:
            return "?";
    }
}

/// What is known without looking at the stack.
void reportFacts(int descriptor, int signal) {
    char line[64] = {};
    SafeText(line, sizeof line) << "\nSignal " << static_cast<unsigned long>(signal) << " (" << signalName(signal)
                                << ")\nBlack box:\n";
    write(descriptor, gPrepared.version);
    write(descriptor, line);
    if (gPrepared.blackBox && *gPrepared.blackBox) write(descriptor, *gPrepared.blackBox);
    write(descriptor, "\nStack:\n");
}

FileDescriptor openFile() {
    if (gPrepared.prefixLength == 0) return {};
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    SafeText(gPrepared.filePath, sizeof gPrepared.filePath, gPrepared.prefixLength)
        << "-" << static_cast<unsigned long>(now.tv_sec) << "-" << static_cast<unsigned long>(::getpid()) << ".crash";
    return FileDescriptor(::open(gPrepared.filePath, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
}

void handle(int signal) {
    // The first one's end of the process ends the others too.
    while (gIsReporting.test_and_set()) ::pause();

    // The file before the stream, which nobody may be reading, and the facts before the stack, which may be too broken
    // to be walked: that would be the process's end.
    FileDescriptor file = openFile();
    reportFacts(file ? file.get() : STDERR_FILENO, signal);
    void* frames[kFrames];
    const int count = backtrace(frames, kFrames);
    if (file) {
        backtrace_symbols_fd(frames, count, file.get());
        file.reset();
        reportFacts(STDERR_FILENO, signal);
    }
    backtrace_symbols_fd(frames, count, STDERR_FILENO);

    struct sigaction standard {};
    standard.sa_handler = SIG_DFL;
    ::sigaction(signal, &standard, nullptr);
    ::raise(signal);  // blocked until this returns; also right where somebody sent the signal and nothing would repeat
}

}  // namespace

void installCrashHandler(const std::string& filePrefix, const std::string& versionText) {
    gPrepared.prefixLength = filePrefix.copy(gPrepared.filePath, 3900);
    versionText.copy(gPrepared.version, 500);
    gPrepared.blackBox = crashReporterInfo();

    // The first capture loads the unwinder, which a handler must not do.
    void* frame = nullptr;
    backtrace(&frame, 1);

    stack_t current{};
    if (::sigaltstack(nullptr, &current) == 0 && (current.ss_flags & SS_DISABLE) != 0) {
        stack_t own{};
        own.ss_sp = gPrepared.stack;
        own.ss_size = sizeof gPrepared.stack;
        ::sigaltstack(&own, nullptr);
    }

    struct sigaction action {};
    action.sa_handler = handle;
    action.sa_flags = SA_ONSTACK;
    sigemptyset(&action.sa_mask);
    const int signals[] = {SIGILL, SIGSEGV, SIGABRT, SIGBUS, SIGFPE};
    for (const int signal : signals) sigaddset(&action.sa_mask, signal);
    for (const int signal : signals) ::sigaction(signal, &action, nullptr);

    removeOldReports(filePrefix);
}

}  // namespace platform
