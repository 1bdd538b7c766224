#include "platform/linux/usb/AccessList.hpp"

#include <cstdint>
#include <cstring>
#include <endian.h>
#include <grp.h>
#include <linux/posix_acl.h>
#include <linux/posix_acl_xattr.h>
#include <pwd.h>
#include <sys/xattr.h>

namespace platform {
namespace {

/// What stands before the permissions: "user:anna:".
std::string holderText(const posix_acl_xattr_entry& entry) {
    const std::uint32_t id = le32toh(entry.e_id);
    switch (le16toh(entry.e_tag)) {
        case ACL_USER_OBJ:
            return "user::";
        case ACL_USER:
            return "user:" + userName(id) + ":";
        case ACL_GROUP_OBJ:
            return "group::";
        case ACL_GROUP:
            return "group:" + groupName(id) + ":";
        case ACL_MASK:
            return "mask::";
        case ACL_OTHER:
            return "other::";
        default:
            return "unknown::";
    }
}

}  // namespace

std::string userName(uid_t user) {
    char buffer[4096];
    passwd entry{};
    passwd* found = nullptr;
    if (getpwuid_r(user, &entry, buffer, sizeof buffer, &found) == 0 && found) return found->pw_name;
    return std::to_string(user);
}

std::string groupName(gid_t id) {
    char buffer[4096];
    group entry{};
    group* found = nullptr;
    if (getgrgid_r(id, &entry, buffer, sizeof buffer, &found) == 0 && found) return found->gr_name;
    return std::to_string(id);
}

std::optional<std::string> readAccessList(const std::string& file) {
    constexpr std::size_t kLargest = 65536;  // that the kernel gives
    std::string bytes(kLargest, '\0');
    const ssize_t size = ::getxattr(file.c_str(), "system.posix_acl_access", bytes.data(), bytes.size());
    if (size < 0) return std::nullopt;
    bytes.resize(static_cast<std::size_t>(size));
    return bytes;
}

std::string accessListText(std::string_view bytes) {
    posix_acl_xattr_header header{};
    posix_acl_xattr_entry entry{};
    if (bytes.size() < sizeof header || (bytes.size() - sizeof header) % sizeof entry != 0) return {};
    std::memcpy(&header, bytes.data(), sizeof header);
    if (le32toh(header.a_version) != POSIX_ACL_XATTR_VERSION) return {};
    std::string text;
    for (bytes.remove_prefix(sizeof header); !bytes.empty(); bytes.remove_prefix(sizeof entry)) {
        std::memcpy(&entry, bytes.data(), sizeof entry);
        const unsigned permissions = le16toh(entry.e_perm);
        text += (text.empty() ? "" : ",") + holderText(entry);
        text += permissions & ACL_READ ? 'r' : '-';
        text += permissions & ACL_WRITE ? 'w' : '-';
        text += permissions & ACL_EXECUTE ? 'x' : '-';
    }
    return text;
}

}  // namespace platform
