#include "app/Util/Logging/impl/DDLogFileMarks.hpp"

#include "platform/FileAttributes.hpp"
#include "platform/Platform.hpp"
#include "platform/common/FileDescriptor.hpp"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <map>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace fs = std::filesystem;

namespace DDLogFileMarks {
namespace {

using Marks = std::map<std::string, std::string>;

// Linux lets ordinary files have attributes of users' programs in this name space only.
std::string attributeName(const std::string& name) {
    return "user." + name;
}

std::string besidePath(const std::string& path) {
    const auto name = path.rfind('/') == std::string::npos ? 0 : path.rfind('/') + 1;
    return path.substr(0, name) + "." + path.substr(name) + ".marks";
}

/// The number that identifies the file, or 0 when it is not there.
ino_t inodeOf(const std::string& path) {
    struct stat status {};
    return ::lstat(path.c_str(), &status) == 0 ? status.st_ino : 0;
}

/// The marks of the file of that number.
Marks readBeside(const std::string& path, ino_t inode) {
    Marks marks;
    std::error_code error;
    if (!fs::is_regular_file(fs::symlink_status(besidePath(path), error))) return marks;
    std::ifstream file(besidePath(path));
    ino_t marked = 0;
    std::string line;
    if (!(file >> marked) || marked == 0 || marked != inode || !std::getline(file, line)) return marks;
    while (std::getline(file, line)) {
        const auto space = line.find(' ');
        if (space != std::string::npos) marks[line.substr(0, space)] = line.substr(space + 1);
    }
    return marks;
}

int writeBeside(const std::string& path, ino_t inode, const Marks& marks) {
    if (inode == 0) return ENOENT;
    if (marks.empty()) {
        forget(path);
        return 0;
    }
    std::string text = std::to_string(inode) + '\n';
    for (const auto& [name, value] : marks) text.append(name).append(" ").append(value).append("\n");
    // A new file takes the place whole, so that neither half of it can be read nor a link be followed.
    const std::string fresh = besidePath(path) + ".new";
    std::remove(fresh.c_str());
    const platform::FileDescriptor file(::open(fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (!file) return errno;
    const ssize_t written = ::write(file.get(), text.data(), text.size());
    int error = written < 0 ? errno : EIO;
    if (written == static_cast<ssize_t>(text.size()))
        error = std::rename(fresh.c_str(), besidePath(path).c_str()) == 0 ? 0 : errno;
    if (error != 0) std::remove(fresh.c_str());
    return error;
}

int addBeside(const std::string& path, ino_t inode, const std::string& name, const std::string& value) {
    Marks marks = readBeside(path, inode);
    marks[name] = value;
    return writeBeside(path, inode, marks);
}

bool unsupported(int error) {
    return error == ENOTSUP || error == ENOSYS;
}

// Some file systems have the attributes but no room for them.
bool noPlace(int error) {
    return unsupported(error) || error == ENOSPC || error == E2BIG;
}

}  // namespace

int set(const std::string& path, const std::string& name, const std::string& value) {
    const int error = platform::fileAttributes().setxattr(path, attributeName(name), value);
    return noPlace(error) ? addBeside(path, inodeOf(path), name, value) : error;
}

int set(int file, const std::string& name, const std::string& value) {
    const int error = platform::fileAttributes().fsetxattr(file, attributeName(name), value);
    if (!noPlace(error)) return error;
    struct stat status {};
    if (::fstat(file, &status) != 0) return errno;
    std::error_code ignored;
    const std::string path = fs::read_symlink("/proc/self/fd/" + std::to_string(file), ignored).string();
    return inodeOf(path) == status.st_ino ? addBeside(path, status.st_ino, name, value) : 0;
}

int get(const std::string& path, const std::string& name, std::string& value) {
    const int error = platform::fileAttributes().getxattr(path, attributeName(name), value);
    if (!unsupported(error) && error != ENODATA) return error;
    const Marks marks = readBeside(path, inodeOf(path));
    const auto found = marks.find(name);
    if (found == marks.end()) return ENODATA;
    value = found->second;
    return 0;
}

int remove(const std::string& path, const std::string& name) {
    const int error = platform::fileAttributes().removexattr(path, attributeName(name));
    if (error != 0 && error != ENODATA && !unsupported(error)) return error;
    const ino_t inode = inodeOf(path);
    Marks marks = readBeside(path, inode);
    return marks.erase(name) ? writeBeside(path, inode, marks) : 0;
}

void forget(const std::string& path) {
    std::remove(besidePath(path).c_str());
}

void move(const std::string& from, const std::string& to) {
    std::rename(besidePath(from).c_str(), besidePath(to).c_str());
}

}  // namespace DDLogFileMarks
