#pragma once

#include "platform/PropertyList.hpp"
#include "platform/common/FileDescriptor.hpp"

#include <string>
#include <string_view>

namespace platform {

/// What reading a property-list file came to.
struct PropertyListFile {
    enum class State {
        Read,
        Absent,
        Damaged,    ///< it was read, and is no property list
        Unreadable  ///< the system refused, or this is no regular file; it may be perfectly good
    };
    State state = State::Absent;
    PropertyList::Dictionary contents;  ///< empty unless the file was read and holds a dictionary
};

/// Reads a file whose root is a dictionary; any other root counts as damage. Blocks on the disk. Any thread.
[[nodiscard]] PropertyListFile readPropertyListFile(const std::string& path);

/// Exclusive right to replace one file, among all processes and threads. It is the temporary file itself, locked while
/// this object lives, so that an ended process leaves no lock behind: the next writer takes its leftovers over.
///
///     <folder>/.<name>.new   written and synced, then renamed over <folder>/<name>
class FileReplacement {
  public:
    /// What the right is for where the path is a symbolic link: a user may keep the file in another folder.
    enum class Of { Target, Link };

    /// Waits for other writers of the same file. Blocks.
    explicit FileReplacement(const std::string& path, Of of = Of::Target);
    ~FileReplacement();  ///< without a commit the file stays as it is
    FileReplacement(const FileReplacement&) = delete;
    FileReplacement& operator=(const FileReplacement&) = delete;

    /// False when the folder can't be written, or is on a file system without locks.
    bool isLocked() const { return static_cast<bool>(mDescriptor); }

    /// The file that is replaced: the path, or what the link leads to.
    const std::string& path() const { return mPath; }

    /// Puts the bytes in the place of the file, for good once this returns: at every moment, power loss included, the
    /// old or the new contents are there, whole.
    /// @return false when they could not be written; the old contents are still there
    [[nodiscard]] bool commit(std::string_view bytes);

    /// Renames the file to a name that nothing has, next to it.
    /// @return the new path; empty when it could not be moved and is still there
    [[nodiscard]] std::string setAside();

  private:
    bool write(std::string_view bytes);

    std::string mPath;
    std::string mFolder;
    std::string mTemporary;
    FileDescriptor mDescriptor;
};

}  // namespace platform
