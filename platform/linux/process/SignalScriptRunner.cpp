#include "platform/linux/process/SignalScriptRunner.hpp"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
extern "C" {  // glibc 2.36 forgets to say so itself
#include <sys/pidfd.h>
}

#include "platform/common/FileDescriptor.hpp"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stop_token>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

namespace platform {
namespace {

namespace fs = std::filesystem;
using std::chrono::ceil;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr std::size_t kKernelNameLength = 15;  // of "comm", which the kernel cuts

std::string contents(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    std::ostringstream contents;
    contents << stream.rdbuf();  // a process that ends meanwhile makes the read fail; an iterator would throw that
    return contents.str();
}

std::string_view baseName(std::string_view path) {
    return path.substr(path.rfind('/') + 1);
}

/// Whether the process's full name is this one: that of the program it runs, of its first argument, or, where an
/// interpreter runs a script, of the script.
bool hasFullName(const fs::path& process, std::string_view name) {
    const std::string arguments = contents(process / "cmdline");  // each ended by a zero byte
    std::string_view rest = arguments;
    for (int i = 0; i < 2 && !rest.empty(); ++i) {
        const std::size_t end = std::min(rest.find('\0'), rest.size());
        if (baseName(rest.substr(0, end)) == name) return true;
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    std::error_code error;
    const std::string program = fs::read_symlink(process / "exe", error);
    return !error && baseName(program) == name;
}

/// This user's, and of that exact name. What the kernel calls a process is cut to 15 characters: only a shorter name
/// is told by it alone.
bool isWanted(const fs::path& process, std::string_view name) {
    struct stat status {};
    if (::stat(process.c_str(), &status) < 0 || status.st_uid != ::geteuid()) return false;
    std::string shortName = contents(process / "comm");
    if (shortName.ends_with('\n')) shortName.pop_back();
    if (shortName != name.substr(0, kKernelNameLength)) return false;
    return name.size() < kKernelNameLength || hasFullName(process, name);
}

bool hasEnded(int process) {
    pollfd waited{process, POLLIN, 0};  // readable from the end on, also before its parent has taken notice
    return ::poll(&waited, 1, 0) > 0;
}

struct Processes {
    std::vector<FileDescriptor> running;  ///< of the wanted processes that have not ended
    bool outOfReach = false;              ///< there is one that can't be referred to
};

Processes running(std::string_view name) {
    Processes found;
    std::error_code error;
    for (fs::directory_iterator entry("/proc", error), end; !error && entry != end; entry.increment(error)) {
        const std::string text = entry->path().filename();
        pid_t id = 0;
        const auto [last, failure] = std::from_chars(text.data(), text.data() + text.size(), id);
        if (failure != std::errc() || last != text.data() + text.size() || id == ::getpid()) continue;
        if (!isWanted(*entry, name)) continue;
        FileDescriptor process(::pidfd_open(id, 0));
        if (!process && errno != ESRCH) found.outOfReach = true;
        // Looked at again: the id may have passed to another process before the descriptor was made.
        if (process && !hasEnded(process.get()) && isWanted(*entry, name)) found.running.push_back(std::move(process));
    }
    return found;
}

void waitForEnd(const std::vector<FileDescriptor>& processes, milliseconds patience, const std::stop_token& stop) {
    const FileDescriptor stopped(::eventfd(0, EFD_CLOEXEC));
    const std::stop_callback wakes(stop, [&] { static_cast<void>(::eventfd_write(stopped.get(), 1)); });
    std::vector<pollfd> waited = {{stopped.get(), POLLIN, 0}};
    for (const auto& process : processes) waited.push_back({process.get(), POLLIN, 0});
    const auto deadline = steady_clock::now() + patience;
    while (waited.size() > 1 && !stop.stop_requested()) {
        const auto left = ceil<milliseconds>(deadline - steady_clock::now());
        if (left.count() <= 0) return;
        const int ready = ::poll(waited.data(), waited.size(), static_cast<int>(left.count()));
        if (ready < 0 && errno != EINTR) return;
        if (ready > 0) std::erase_if(waited, [](const pollfd& entry) { return entry.revents != 0; });
    }
}

}  // namespace

std::optional<std::string> applicationToQuit(std::string_view source) {
    constexpr std::string_view kStart = "tell application \"";
    constexpr std::string_view kEnd = " to quit";
    if (!source.starts_with(kStart)) return std::nullopt;
    std::string name;
    std::size_t at = kStart.size();
    for (; at < source.size() && source[at] != '"'; ++at) {
        if (source[at] == '\\' && ++at == source.size()) return std::nullopt;
        name += source[at];
    }
    if (at == source.size() || source.substr(at + 1) != kEnd || name.empty()) return std::nullopt;
    return name;
}

bool SignalScriptRunner::executeAndReturnError(const std::string& source, const std::stop_token& stop) {
    const auto name = applicationToQuit(source);
    if (!name) return false;
    const auto isGone = [](const Processes& found) { return found.running.empty() && !found.outOfReach; };
    const Processes asked = running(*name);
    if (isGone(asked)) return true;
    for (const auto& process : asked.running) ::pidfd_send_signal(process.get(), SIGTERM, nullptr, 0);
    waitForEnd(asked.running, mPatience, stop);
    return isGone(running(*name));  // also one that has been started in the meantime counts
}

int SignalScriptRunner::system(const std::string& command) {
    const int status = std::system(command.c_str());
    if (status == -1) return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace platform
