#include "app/Util/Logging/DDLogFileManager.hpp"

#include "platform/common/FileDescriptor.hpp"

#include <algorithm>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <system_error>

namespace {

template <typename Text>
std::vector<std::string> textsOf(const std::vector<DDLogFileInfo>& infos, Text text) {
    std::vector<std::string> texts;
    for (const DDLogFileInfo& info : infos) texts.push_back(std::invoke(text, info));
    return texts;
}

}  // namespace

std::vector<DDLogFileInfo> DDLogFileManager::unsortedLogFileInfos() const {
    std::vector<DDLogFileInfo> infos;
    std::error_code error;
    for (std::filesystem::directory_iterator entry(logsDirectory(), error), end; !error && entry != end;
         entry.increment(error))
        if (isLogFile(entry->path().filename())) infos.emplace_back(entry->path());
    if (error) infos.clear();
    return infos;
}

std::vector<DDLogFileInfo> DDLogFileManager::sortedLogFileInfos() const {
    std::vector<DDLogFileInfo> infos = unsortedLogFileInfos();
    std::ranges::sort(infos, [this](const auto& a, const auto& b) { return isNewer(a, b); });
    return infos;
}

std::vector<std::string> DDLogFileManager::unsortedLogFilePaths() const {
    return textsOf(unsortedLogFileInfos(), &DDLogFileInfo::filePath);
}

std::vector<std::string> DDLogFileManager::unsortedLogFileNames() const {
    return textsOf(unsortedLogFileInfos(), &DDLogFileInfo::fileName);
}

std::vector<std::string> DDLogFileManager::sortedLogFilePaths() const {
    return textsOf(sortedLogFileInfos(), &DDLogFileInfo::filePath);
}

std::vector<std::string> DDLogFileManager::sortedLogFileNames() const {
    return textsOf(sortedLogFileInfos(), &DDLogFileInfo::fileName);
}

void DDLogFileManager::replaceWithEmptyFile(const std::string& path, DDLogFileInfo::Date creationDate) {
    // A new file and not a shortened one: the marks of the old one must go with it.
    std::error_code ignored;
    std::filesystem::remove(path, ignored);
    DDLogFileInfo::forgetMarks(path);
    const platform::FileDescriptor file(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
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
