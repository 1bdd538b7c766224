#pragma once

#include "platform/WallClock.hpp"

#include <cstdint>
#include <optional>
#include <string>

/// What a file system tells of a log file.
struct DDLogFileAttributes {
    bool regularFile = false;
    platform::WallClock::Date creationDate;  ///< as set; else when the file was made; else its modification date
    platform::WallClock::Date modificationDate;
    std::uint64_t size = 0;  ///< bytes
};

/// What is known of one log file on disk. Attributes are read when first asked for and kept until reset(). A plain
/// value; the thread that uses it owns it.
///
/// The archived mark tells the file logger not to reuse the file. It is the extended attribute
/// "user.modogriomu.log.archived"; the day that the file stands for, which no Linux file system takes as a creation
/// date, is "user.modogriomu.log.created". Where the file system keeps no attributes, a hidden file beside the log file
/// holds both and is only believed about the very file (by its inode) that it was written for.
class DDLogFileInfo {
  public:
    using Date = platform::WallClock::Date;

    explicit DDLogFileInfo(std::string filePath);

    const std::string& filePath() const { return mFilePath; }
    std::string fileName() const;

    /// Zeros for a file that is not there.
    const DDLogFileAttributes& fileAttributes() const;
    Date creationDate() const { return fileAttributes().creationDate; }
    Date modificationDate() const { return fileAttributes().modificationDate; }
    std::uint64_t fileSize() const { return fileAttributes().size; }
    double age() const;  ///< seconds since the creation date, positive for the past

    bool isArchived() const;
    void setIsArchived(bool archived);  ///< a failure goes to the system log

    /// The same for the open file that this was about, and not for another one that has its path by now.
    void setOpenFileIsArchived(int descriptor);

    bool setCreationDate(Date date);                  ///< false when it could not be kept
    void renameFile(const std::string& newFileName);  ///< within its folder; a failure goes to the system log
    void reset() { mAttributes.reset(); }

    /// Removes what is kept about a file outside of it. To be called when the file is removed or replaced.
    static void forgetMarks(const std::string& filePath);

    bool operator==(const DDLogFileInfo& other) const { return mFilePath == other.mFilePath; }

    /// For sorting: true when a is to come before b, the newest first.
    static bool reverseCompareByCreationDate(const DDLogFileInfo& a, const DDLogFileInfo& b);
    static bool reverseCompareByModificationDate(const DDLogFileInfo& a, const DDLogFileInfo& b);

  private:
    void reportFailure(const char* call, int error) const;

    std::string mFilePath;
    mutable std::optional<DDLogFileAttributes> mAttributes;
};
