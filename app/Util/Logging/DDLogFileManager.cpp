#include "app/Util/Logging/DDLogFileManager.hpp"

#include "platform/common/FileDescriptor.hpp"

#include <fcntl.h>
#include <filesystem>
#include <system_error>

void DDLogFileManager::replaceWithEmptyFile(const std::string& path, DDLogFileInfo::Date creationDate) {
    // A new file and not a shortened one: the marks of the old one must go with it.
    std::error_code ignored;
    std::filesystem::remove(path, ignored);
    DDLogFileInfo::forgetMarks(path);
    const platform::FileDescriptor file(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
    if (file) DDLogFileInfo(path).setCreationDate(creationDate);
}

void DDLogFileManager::removeFilesBeyondMaximum(const std::vector<std::string>& sortedPaths) const {
    const unsigned maximum = maximumNumberOfLogFiles();
    if (maximum == 0) return;
    for (std::size_t i = sortedPaths.size(); i > maximum; --i) {
        std::error_code ignored;  // the next new file tries again
        if (std::filesystem::remove(sortedPaths[i - 1], ignored)) DDLogFileInfo::forgetMarks(sortedPaths[i - 1]);
    }
}
