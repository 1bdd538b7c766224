#include "simulator/world/SimulatedServices.hpp"

#include <variant>

namespace simulator {

std::optional<platform::PropertyList> MemoryDefaults::objectForKey(const std::string& key) const {
    const auto found = values.find(key);
    return found == values.end() ? std::nullopt : std::optional(found->second);
}

bool MemoryDefaults::boolForKey(const std::string& key) const {
    const auto value = objectForKey(key);
    const bool* flag = value ? std::get_if<bool>(&value->value) : nullptr;
    return flag ? *flag : integerForKey(key) != 0;
}

std::int64_t MemoryDefaults::integerForKey(const std::string& key) const {
    const auto value = objectForKey(key);
    const auto* number = value ? std::get_if<std::int64_t>(&value->value) : nullptr;
    return number ? *number : 0;
}

platform::PropertyList::Dictionary MemoryDefaults::persistentDomainForName(const std::string& domain) const {
    const auto found = domains.find(domain);
    return found == domains.end() ? platform::PropertyList::Dictionary{} : found->second;
}

bool MemoryDefaults::setPersistentDomain(const platform::PropertyList::Dictionary& contents,
                                         const std::string& domain) {
    domains[domain] = contents;
    return true;
}

}  // namespace simulator
