#include "app/Util/Logging/impl/DDLogFileMarks.hpp"

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <fstream>
#include <map>

#include "platform/FileAttributes.hpp"
#include "platform/Platform.hpp"

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
unsigned long long inodeOf(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 ? status.st_ino : 0;
}

Marks readBeside(const std::string& path) {
    Marks marks;
    std::ifstream file(besidePath(path));
    unsigned long long inode = 0;
    std::string line;
    if (!(file >> inode) || inode == 0 || inode != inodeOf(path) || !std::getline(file, line)) return marks;
    while (std::getline(file, line)) {
        const auto space = line.find(' ');
        if (space != std::string::npos) marks[line.substr(0, space)] = line.substr(space + 1);
    }
    return marks;
}

int writeBeside(const std::string& path, const Marks& marks) {
    const unsigned long long inode = inodeOf(path);
    if (inode == 0) return ENOENT;
    if (marks.empty()) {
        forget(path);
        return 0;
    }
    errno = 0;
    std::ofstream file(besidePath(path), std::ios::trunc);
    file << inode << '\n';
    for (const auto& [name, value] : marks) file << name << ' ' << value << '\n';
    file.close();
    if (file) return 0;
    return errno ? errno : EIO;
}

bool unsupported(int error) {
    return error == ENOTSUP || error == ENOSYS;
}

}  // namespace

int set(const std::string& path, const std::string& name, const std::string& value) {
    const int error = platform::fileAttributes().setxattr(path, attributeName(name), value);
    // Some file systems have the attributes but no room for them.
    if (!unsupported(error) && error != ENOSPC && error != E2BIG) return error;
    Marks marks = readBeside(path);
    marks[name] = value;
    return writeBeside(path, marks);
}

int get(const std::string& path, const std::string& name, std::string& value) {
    const int error = platform::fileAttributes().getxattr(path, attributeName(name), value);
    if (!unsupported(error) && error != ENODATA) return error;
    const Marks marks = readBeside(path);
    const auto found = marks.find(name);
    if (found == marks.end()) return ENODATA;
    value = found->second;
    return 0;
}

int remove(const std::string& path, const std::string& name) {
    const int error = platform::fileAttributes().removexattr(path, attributeName(name));
    if (error != 0 && error != ENODATA && !unsupported(error)) return error;
    Marks marks = readBeside(path);
    return marks.erase(name) ? writeBeside(path, marks) : 0;
}

void forget(const std::string& path) {
    std::remove(besidePath(path).c_str());
}

void move(const std::string& from, const std::string& to) {
    std::rename(besidePath(from).c_str(), besidePath(to).c_str());
}

}  // namespace DDLogFileMarks
