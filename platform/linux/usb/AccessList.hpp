#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>

namespace platform {

/// A name for the log: "root", or the number of an account without a name. Any thread.
std::string userName(uid_t user);
std::string groupName(gid_t group);

/// A file's access list as the kernel keeps it; nothing where it has none beyond its mode, or can't be asked.
std::optional<std::string> readAccessList(const std::string& file);

/// The list in getfacl's short form: "user::rw-,user:anna:rw-,group::rw-,mask::rw-,other::---"; empty when the bytes
/// are no access list. Any thread.
std::string accessListText(std::string_view bytes);

}  // namespace platform
