#pragma once

#include "WIN/WIN_CallbackTimer.hpp"
#include "platform/PropertyList.hpp"

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <variant>

namespace win {

/// One key of the registry tree. A subkey is shared, so that an open key stays good when it is removed from its parent.
struct RegistryDictionary_t {
    using Subkey_t = std::shared_ptr<RegistryDictionary_t>;          ///< never null
    using Entry_t = std::variant<platform::PropertyList, Subkey_t>;  ///< a value or a subkey

    std::map<std::string, Entry_t> mEntries;  ///< never a dictionary as a property list: that is a subkey
};

/// The emulated registry: one tree of keys and values, kept in the application's preferences under "RegistryRoot".
///
/// The tree belongs to one thread at a time, as its users arrange it among themselves. Saving happens on the main
/// thread meanwhile, which is what the mutex is for.
class MacRegistryStore_t : public CallbackTimer_t, public TimerEventIntf_t {
  public:
    /// Reads the tree from the user's preferences; what isn't there starts empty.
    MacRegistryStore_t();
    ~MacRegistryStore_t() override;

    /// Has the tree written in 1 ms, on the main thread. Calls in quick succession end in one write. What
    /// is set in the last millisecond of the process is not written. Any thread.
    void Save();

    /// Writes the tree into the application's preferences, beside what else is there, and stops the timer. What can't
    /// be written stays in memory for the next save. Callback on the main thread.
    void HandleTimeout() override;

    const RegistryDictionary_t::Subkey_t& Root() const { return mRoot; }  ///< of the tree, which TreeMutex() guards
    std::mutex& TreeMutex() { return mTreeMutex; }                        ///< held while the tree is read or changed

  private:
    RegistryDictionary_t::Subkey_t mRoot;
    std::mutex mTreeMutex;   ///< locks everything below mRoot
    std::mutex mTimerMutex;  ///< the timer takes one call at a time
};

/// The process's store, made at the first call. Any thread.
MacRegistryStore_t& MacRegistryStore();

}  // namespace win
