#pragma once

#include "platform/NSUserDefaults.hpp"

#include <map>
#include <mutex>
#include <string>

namespace platform {

/// The user's preferences: one XML property list for each domain, <folder>/<domain>.plist. Every read looks at the
/// file, so another process's changes are seen at once; they are few and none is on a path that has to be fast.
///
/// A file that is no property list is renamed to <domain>.plist.damaged-<n> by whoever meets it first, with a line in
/// the system log, and the domain counts as empty from then on. Of a symbolic link the link is renamed; a sound file
/// behind one is read and replaced where it is. What the system doesn't let us read, and what is no regular file, is
/// left alone: it reads as empty and can't be written.
/// Any thread. Reads and writes block on the disk.
class UserDefaults : public NSUserDefaults {
  public:
    /// @param domain  the application's own, its bundle identifier; without one there are no preferences
    /// @param folder  made with its parents at the first write; empty for "Trovik" in the user's preferences folder
    explicit UserDefaults(std::string domain, std::string folder = {});

    std::optional<PropertyList> objectForKey(const std::string& key) const override;
    bool boolForKey(const std::string& key) const override;
    std::int64_t integerForKey(const std::string& key) const override;
    PropertyList::Dictionary persistentDomainForName(const std::string& domain) const override;

    /// Between reading a domain and writing it back another process may have written too. Keys that the caller left as
    /// persistentDomainForName last gave them take what the file holds now; all others become what the caller says. A
    /// domain that was never read is replaced whole.
    bool setPersistentDomain(const PropertyList::Dictionary& contents, const std::string& domain) override;

  private:
    std::string pathOf(const std::string& domain) const;
    /// Logs nothing: it holds the file's lock, and the system log may block.
    bool mergeIntoFile(const PropertyList::Dictionary& contents, const std::string& domain, const std::string& path);

    std::string mDomain;
    std::string mFolder;
    mutable std::mutex mMutex;  ///< locks mLastRead
    mutable std::map<std::string, PropertyList::Dictionary> mLastRead;
};

}  // namespace platform
