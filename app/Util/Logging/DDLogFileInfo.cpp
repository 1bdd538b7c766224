#include "app/Util/Logging/DDLogFileInfo.hpp"

#include "app/Util/Logging/impl/DDLogFileMarks.hpp"
#include "platform/FileAttributes.hpp"
#include "platform/Platform.hpp"

#include <charconv>
#include <chrono>
#include <filesystem>
#include <sys/stat.h>
#include <system_error>
#include <utility>

namespace {

constexpr const char* kArchived = "modogriomu.log.archived";
constexpr const char* kCreated = "modogriomu.log.created";  // milliseconds since 1970, decimal

std::optional<DDLogFileInfo::Date> creationMark(const std::string& path) {
    std::string text;
    if (DDLogFileMarks::get(path, kCreated, text) != 0) return std::nullopt;
    std::int64_t milliseconds = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), milliseconds);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return DDLogFileInfo::Date(std::chrono::milliseconds(milliseconds));
}

}  // namespace

DDLogFileInfo::DDLogFileInfo(std::string filePath) : mFilePath(std::move(filePath)) {}

std::string DDLogFileInfo::fileName() const {
    const auto slash = mFilePath.rfind('/');
    return slash == std::string::npos ? mFilePath : mFilePath.substr(slash + 1);
}

const DDLogFileAttributes& DDLogFileInfo::fileAttributes() const {
    if (mAttributes) return *mAttributes;
    mAttributes.emplace();
    struct stat status {};
    if (::lstat(mFilePath.c_str(), &status) != 0) return *mAttributes;
    mAttributes->regularFile = S_ISREG(status.st_mode);
    mAttributes->size = static_cast<std::uint64_t>(status.st_size);
    mAttributes->modificationDate = Date(std::chrono::duration_cast<Date::duration>(
        std::chrono::seconds(status.st_mtim.tv_sec) + std::chrono::nanoseconds(status.st_mtim.tv_nsec)));
    std::optional<Date> created = creationMark(mFilePath);
    if (!created) created = platform::fileAttributes().birthTime(mFilePath);
    mAttributes->creationDate = created.value_or(mAttributes->modificationDate);
    return *mAttributes;
}

double DDLogFileInfo::age() const {
    return std::chrono::duration<double>(platform::wallClock().now() - creationDate()).count();
}

bool DDLogFileInfo::isArchived() const {
    std::string value;
    return DDLogFileMarks::get(mFilePath, kArchived, value) == 0;
}

void DDLogFileInfo::setIsArchived(bool archived) {
    if (archived) {
        reportFailure("setxattr", DDLogFileMarks::set(mFilePath, kArchived, {}));
    } else {
        reportFailure("removexattr", DDLogFileMarks::remove(mFilePath, kArchived));
    }
}

void DDLogFileInfo::setOpenFileIsArchived(int descriptor) {
    reportFailure("setxattr", DDLogFileMarks::set(descriptor, kArchived, {}));
}

void DDLogFileInfo::reportFailure(const char* call, int error) const {
    if (error != 0) platform::NSLog("DDLogFileInfo: %s(%s, %s): error = %i", call, kArchived, mFilePath.c_str(), error);
}

bool DDLogFileInfo::setCreationDate(Date date) {
    const auto milliseconds = std::chrono::floor<std::chrono::milliseconds>(date).time_since_epoch().count();
    mAttributes.reset();
    return DDLogFileMarks::set(mFilePath, kCreated, std::to_string(milliseconds)) == 0;
}

void DDLogFileInfo::renameFile(const std::string& newFileName) {
    if (newFileName == fileName()) return;
    const std::string newPath = mFilePath.substr(0, mFilePath.size() - fileName().size()) + newFileName;
    std::error_code error;
    std::filesystem::rename(mFilePath, newPath, error);
    if (error) {
        platform::NSLog("DDLogFileInfo: Error renaming file (%s): %s", mFilePath.c_str(), error.message().c_str());
        return;
    }
    DDLogFileMarks::move(mFilePath, newPath);
    mFilePath = newPath;
    reset();
}

void DDLogFileInfo::forgetMarks(const std::string& filePath) {
    DDLogFileMarks::forget(filePath);
}

bool DDLogFileInfo::reverseCompareByCreationDate(const DDLogFileInfo& a, const DDLogFileInfo& b) {
    return a.creationDate() > b.creationDate();
}

bool DDLogFileInfo::reverseCompareByModificationDate(const DDLogFileInfo& a, const DDLogFileInfo& b) {
    return a.modificationDate() > b.modificationDate();
}
