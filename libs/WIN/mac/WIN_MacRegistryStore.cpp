#include "WIN/WIN_MacRegistryStore.hpp"

#include "libs/WIN/impl/WIN_FirstUse.hpp"
#include "platform/NSBundle.hpp"
#include "platform/NSUserDefaults.hpp"
#include "platform/Platform.hpp"

#include <utility>

namespace win {
namespace {

using platform::PropertyList;
using Subkey_t = RegistryDictionary_t::Subkey_t;

constexpr char gcStoreName[] = "RegistryRoot";
constexpr Duration_t gcSaveDelay = 1;

Subkey_t TreeFrom(const PropertyList::Dictionary& dictionary) {
    auto key = std::make_shared<RegistryDictionary_t>();
    for (const auto& [name, value] : dictionary) {
        if (const auto* subkey = value.dictionary())
            key->mEntries.emplace(name, TreeFrom(*subkey));
        else
            key->mEntries.emplace(name, value);
    }
    return key;
}

PropertyList ListFrom(const RegistryDictionary_t& key) {
    PropertyList::Dictionary dictionary;
    for (const auto& [name, entry] : key.mEntries) {
        const auto* subkey = std::get_if<Subkey_t>(&entry);
        dictionary.emplace(name, subkey ? ListFrom(**subkey) : std::get<PropertyList>(entry));
    }
    return {std::move(dictionary)};
}

}  // namespace

MacRegistryStore_t::MacRegistryStore_t() {
    const auto saved = platform::standardUserDefaults().objectForKey(gcStoreName);
    const auto* dictionary = saved ? saved->dictionary() : nullptr;
    mRoot = TreeFrom(dictionary ? *dictionary : PropertyList::Dictionary());
    SetHandler(*this);
}

MacRegistryStore_t::~MacRegistryStore_t() = default;

void MacRegistryStore_t::Save() {
    const std::lock_guard lock(mTimerMutex);
    Stop();
    Start(gcSaveDelay);
}

void MacRegistryStore_t::HandleTimeout() {
    // Stopped before the tree is copied: what another thread writes from here on starts the timer again.
    {
        const std::lock_guard lock(mTimerMutex);
        Stop();
    }
    PropertyList root;
    {
        const std::lock_guard lock(mTreeMutex);
        root = ListFrom(*mRoot);
    }
    auto& defaults = platform::standardUserDefaults();
    const std::string domainName = platform::mainBundle().bundleIdentifier();
    auto domain = defaults.persistentDomainForName(domainName);
    domain.insert_or_assign(gcStoreName, std::move(root));
    defaults.setPersistentDomain(domain, domainName);
}

MacRegistryStore_t& MacRegistryStore() {
    static MacRegistryStore_t store = [] {
        const FirstUseScope_t firstUse;
        return MacRegistryStore_t();
    }();
    return store;
}

}  // namespace win
