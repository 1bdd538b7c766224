#pragma once

#include <string>

/// Named texts kept about a file: as its extended attributes, or, where its file system has none, in a hidden file
/// beside it. Results are errno values, 0 for success. Not synchronised; one thread at a time per file.
///
/// The hidden file is ".<name>.marks":
///
/// | line   | text                                                    |
/// |--------|---------------------------------------------------------|
/// | 1      | the inode number of the file that the rest is about     |
/// | 2 ...  | one mark each: name, one space, value (may be empty)    |
namespace DDLogFileMarks {

[[nodiscard]] int set(const std::string& path, const std::string& name, const std::string& value);

/// The same for an open file, whatever its name is by now. One that has no name any more, on a file system without
/// attributes, keeps no mark and needs none.
[[nodiscard]] int set(int file, const std::string& name, const std::string& value);

/// ENODATA where there is none.
[[nodiscard]] int get(const std::string& path, const std::string& name, std::string& value);

[[nodiscard]] int remove(const std::string& path, const std::string& name);  ///< 0 also where there is none
void forget(const std::string& path);                                        ///< removes the hidden file
void move(const std::string& from, const std::string& to);                   ///< after the file has been renamed

}  // namespace DDLogFileMarks
