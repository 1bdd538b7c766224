#include "WIN/WIN_CRegistry.hpp"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>
#include <mutex>
#include <utility>

#include "GLO/GLO_String.hpp"
#include "WIN/WIN_AppMetaData.hpp"
#include "WIN/WIN_Encoding.hpp"

namespace {

using platform::PropertyList;
using Subkey_t = win::RegistryDictionary_t::Subkey_t;

std::string Utf8(TXString const& text) {
    return glo::string(text, win::Utf8Encoding());
}

std::string WithSlashes(TXString const& path) {
    std::string text = Utf8(path);
    std::replace(text.begin(), text.end(), '\\', '/');
    return text;
}

bool IsSubkey(win::RegistryDictionary_t::Entry_t const& entry) {
    return std::holds_alternative<Subkey_t>(entry);
}

}  // namespace

CRegistry::CRegistry(int root)
    : mUserScope(root == gcRegistryLocalMachine ? UserScope_t::AnyUser : UserScope_t::CurrentUser),
      mHostScope(root == gcRegistryLocalMachine ? HostScope_t::CurrentHost : HostScope_t::AnyHost),
      mBundleIdentifier(win::MainBundleIdentifier()) {}

CRegistry::~CRegistry() {
    if (mIsDirty) win::MacRegistryStore().Save();
}

Subkey_t CRegistry::Walk(std::string const& path, bool create) const {
    Subkey_t key = win::MacRegistryStore().Root();
    std::string rest = path;
    while (key && !rest.empty() && rest != "/") {
        auto const slash = rest.find('/');
        std::string const head = rest.substr(0, slash);
        rest = slash == std::string::npos ? std::string() : rest.substr(slash + 1);
        auto it = key->mEntries.find(head);
        if (it == key->mEntries.end()) {
            if (!create) return nullptr;
            it = key->mEntries.emplace(head, std::make_shared<win::RegistryDictionary_t>()).first;
        }
        // The tree comes from a file that a person may have edited: a value may stand where a key is looked for.
        Subkey_t const* next = std::get_if<Subkey_t>(&it->second);
        key = next ? *next : nullptr;
    }
    return key;
}

bool CRegistry::OpenKeyPath(TXString const& path, bool create) {
    std::lock_guard const lock(win::MacRegistryStore().TreeMutex());
    Subkey_t key = Walk(WithSlashes(path), create);
    if (!key) return false;
    mOpenKey = std::move(key);
    return true;
}

PropertyList const* CRegistry::Find(TXString const& name) const {
    // A subkey of that name is there too, as something that is neither string nor number nor data.
    static PropertyList const subkey{PropertyList::Dictionary()};
    if (!mOpenKey) return nullptr;
    auto const it = mOpenKey->mEntries.find(Utf8(name));
    if (it == mOpenKey->mEntries.end()) return nullptr;
    return IsSubkey(it->second) ? &subkey : &std::get<PropertyList>(it->second);
}

bool CRegistry::Read(TXString const& name, TXString& value) const {
    std::lock_guard const lock(win::MacRegistryStore().TreeMutex());
    PropertyList const* found = Find(name);
    std::string const* text = found ? found->string() : nullptr;
    if (text) value = glo::wstring(*text, win::Utf8Encoding());
    return text != nullptr;
}

bool CRegistry::Read(TXString const& name, int& value) const {
    std::lock_guard const lock(win::MacRegistryStore().TreeMutex());
    PropertyList const* found = Find(name);
    if (!found) return false;
    if (auto const* data = std::get_if<PropertyList::Data>(&found->value)) {
        if (data->size() != sizeof value) return false;
        std::memcpy(&value, data->data(), sizeof value);
    } else if (auto const* number = std::get_if<std::int64_t>(&found->value)) {
        value = static_cast<int>(*number);
    } else if (auto const* real = std::get_if<double>(&found->value)) {
        using Limits_t = std::numeric_limits<int>;
        if (!(*real > Limits_t::min() - 1.0 && *real < Limits_t::max() + 1.0)) return false;
        value = static_cast<int>(*real);
    } else {
        return false;
    }
    return true;
}

unsigned int CRegistry::Read(TXString const& name, void* buffer, unsigned int size) const {
    std::lock_guard const lock(win::MacRegistryStore().TreeMutex());
    PropertyList const* found = Find(name);
    if (!found) return gcAbsent;
    auto const* data = std::get_if<PropertyList::Data>(&found->value);
    if (!data) return 0;
    auto const length = static_cast<unsigned int>(data->size());
    if (buffer && length > 0 && length <= size) std::memcpy(buffer, data->data(), length);
    return length;
}

bool CRegistry::Store(TXString const& name, PropertyList value) {
    std::lock_guard const lock(win::MacRegistryStore().TreeMutex());
    if (!mOpenKey) return false;
    mOpenKey->mEntries.insert_or_assign(Utf8(name), std::move(value));
    mIsDirty = true;
    return true;
}

bool CRegistry::Write(TXString const& name, TXString const& value) {
    return Store(name, {Utf8(value)});
}

bool CRegistry::Write(TXString const& name, int value) {
    return Write(name, &value, sizeof value);
}

bool CRegistry::Write(TXString const& name, void const* data, unsigned int size) {
    if (!data && size > 0) return false;
    auto const* const bytes = static_cast<unsigned char const*>(data);
    return Store(name, {PropertyList::Data(bytes, bytes + size)});
}

bool CRegistry::Remove(TXString const& name) {
    std::lock_guard const lock(win::MacRegistryStore().TreeMutex());
    if (!mOpenKey || mOpenKey->mEntries.erase(Utf8(name)) == 0) return false;
    mIsDirty = true;
    return true;
}

bool CRegistry::RemoveTerminalNodeOfPath(TXString const& path) {
    std::string const text = WithSlashes(path);
    auto const slash = text.rfind('/');
    std::lock_guard const lock(win::MacRegistryStore().TreeMutex());
    Subkey_t const parent = Walk(slash == std::string::npos ? std::string() : text.substr(0, slash), false);
    if (!parent || parent->mEntries.erase(text.substr(slash + 1)) == 0) return false;
    mIsDirty = true;
    return true;
}

int CRegistry::CountOf(bool subkeys) const {
    std::lock_guard const lock(win::MacRegistryStore().TreeMutex());
    if (!mOpenKey) return 0;
    return static_cast<int>(std::count_if(mOpenKey->mEntries.begin(), mOpenKey->mEntries.end(),
                                          [&](auto const& entry) { return IsSubkey(entry.second) == subkeys; }));
}

bool CRegistry::NameOf(int index, bool subkeys, TXString& name) const {
    std::lock_guard const lock(win::MacRegistryStore().TreeMutex());
    if (!mOpenKey || index < 0) return false;
    for (auto const& [key, entry] : mOpenKey->mEntries) {
        if (IsSubkey(entry) != subkeys || index-- > 0) continue;
        name = glo::wstring(key, win::Utf8Encoding());
        return true;
    }
    return false;
}
