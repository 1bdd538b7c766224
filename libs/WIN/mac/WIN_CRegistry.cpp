#include "WIN/WIN_CRegistry.hpp"

#include "GLO/GLO_String.hpp"
#include "WIN/WIN_AppMetaData.hpp"
#include "WIN/WIN_Encoding.hpp"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <mutex>
#include <utility>
#include <variant>

namespace {

using platform::PropertyList;
using Subkey_t = win::RegistryDictionary_t::Subkey_t;

std::string Utf8(const TXString& text) {
    return glo::string(text, win::Utf8Encoding());
}

std::string WithSlashes(const TXString& path) {
    std::string text = Utf8(path);
    std::ranges::replace(text, '\\', '/');
    return text;
}

bool IsSubkey(const win::RegistryDictionary_t::Entry_t& entry) {
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

Subkey_t CRegistry::Walk(const std::string& path, bool create) const {
    Subkey_t key = win::MacRegistryStore().Root();
    std::string rest = path;
    while (key && !rest.empty() && rest != "/") {
        const auto slash = rest.find('/');
        const std::string head = rest.substr(0, slash);
        rest = slash == std::string::npos ? std::string() : rest.substr(slash + 1);
        auto it = key->mEntries.find(head);
        if (it == key->mEntries.end()) {
            if (!create) return nullptr;
            it = key->mEntries.emplace(head, std::make_shared<win::RegistryDictionary_t>()).first;
        }
        // The tree comes from a file that a person may have edited: a value may stand where a key is looked for.
        const Subkey_t* next = std::get_if<Subkey_t>(&it->second);
        key = next ? *next : nullptr;
    }
    return key;
}

bool CRegistry::OpenKeyPath(const TXString& path, bool create) {
    const std::lock_guard lock(win::MacRegistryStore().TreeMutex());
    Subkey_t key = Walk(WithSlashes(path), create);
    if (!key) return false;
    mOpenKey = std::move(key);
    return true;
}

const PropertyList* CRegistry::Find(const TXString& name) const {
    // A subkey of that name is there too, as something that is neither string nor number nor data.
    static const PropertyList subkey{PropertyList::Dictionary()};
    if (!mOpenKey) return nullptr;
    const auto it = mOpenKey->mEntries.find(Utf8(name));
    if (it == mOpenKey->mEntries.end()) return nullptr;
    return IsSubkey(it->second) ? &subkey : &std::get<PropertyList>(it->second);
}

bool CRegistry::Read(const TXString& name, TXString& value) const {
    const std::lock_guard lock(win::MacRegistryStore().TreeMutex());
    const PropertyList* found = Find(name);
    const std::string* text = found ? found->string() : nullptr;
    if (text) value = glo::wstring(*text, win::Utf8Encoding());
    return text != nullptr;
}

bool CRegistry::Read(const TXString& name, int& value) const {
    const std::lock_guard lock(win::MacRegistryStore().TreeMutex());
    const PropertyList* found = Find(name);
    if (!found) return false;
    if (const auto* data = std::get_if<PropertyList::Data>(&found->value)) {
        if (data->size() != sizeof value) return false;
        std::memcpy(&value, data->data(), sizeof value);
    } else if (const auto* number = std::get_if<std::int64_t>(&found->value)) {
        value = static_cast<int>(*number);
    } else if (const auto* real = std::get_if<double>(&found->value)) {
        using Limits_t = std::numeric_limits<int>;
        if (!(*real > Limits_t::min() - 1.0 && *real < Limits_t::max() + 1.0)) return false;
        value = static_cast<int>(*real);
    } else {
        return false;
    }
    return true;
}

unsigned int CRegistry::Read(const TXString& name, void* buffer, unsigned int size) const {
    const std::lock_guard lock(win::MacRegistryStore().TreeMutex());
    const PropertyList* found = Find(name);
    if (!found) return gcAbsent;
    const auto* data = std::get_if<PropertyList::Data>(&found->value);
    if (!data) return 0;
    const auto length = static_cast<unsigned int>(data->size());
    if (buffer && length > 0 && length <= size) std::memcpy(buffer, data->data(), length);
    return length;
}

bool CRegistry::Store(const TXString& name, PropertyList value) {
    const std::lock_guard lock(win::MacRegistryStore().TreeMutex());
    if (!mOpenKey) return false;
    mOpenKey->mEntries.insert_or_assign(Utf8(name), std::move(value));
    mIsDirty = true;
    return true;
}

bool CRegistry::Write(const TXString& name, const TXString& value) {
    return Store(name, {Utf8(value)});
}

bool CRegistry::Write(const TXString& name, int value) {
    return Write(name, &value, sizeof value);
}

bool CRegistry::Write(const TXString& name, const void* data, unsigned int size) {
    if (!data && size > 0) return false;
    const auto* const bytes = static_cast<const unsigned char*>(data);
    return Store(name, {PropertyList::Data(bytes, bytes + size)});
}

bool CRegistry::Remove(const TXString& name) {
    const std::lock_guard lock(win::MacRegistryStore().TreeMutex());
    if (!mOpenKey || mOpenKey->mEntries.erase(Utf8(name)) == 0) return false;
    mIsDirty = true;
    return true;
}

bool CRegistry::RemoveTerminalNodeOfPath(const TXString& path) {
    const std::string text = WithSlashes(path);
    const auto slash = text.rfind('/');
    const std::lock_guard lock(win::MacRegistryStore().TreeMutex());
    const Subkey_t parent = Walk(slash == std::string::npos ? std::string() : text.substr(0, slash), false);
    if (!parent || parent->mEntries.erase(text.substr(slash + 1)) == 0) return false;
    mIsDirty = true;
    return true;
}

int CRegistry::CountOf(bool subkeys) const {
    const std::lock_guard lock(win::MacRegistryStore().TreeMutex());
    if (!mOpenKey) return 0;
    return static_cast<int>(std::ranges::count_if(
        mOpenKey->mEntries, [&](const auto& entry) { return IsSubkey(entry.second) == subkeys; }));
}

bool CRegistry::NameOf(int index, bool subkeys, TXString& name) const {
    const std::lock_guard lock(win::MacRegistryStore().TreeMutex());
    if (!mOpenKey || index < 0) return false;
    for (const auto& [key, entry] : mOpenKey->mEntries) {
        if (IsSubkey(entry) != subkeys || index-- > 0) continue;
        name = glo::wstring(key, win::Utf8Encoding());
        return true;
    }
    return false;
}
