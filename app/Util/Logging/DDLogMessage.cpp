#include "app/Util/Logging/DDLogMessage.hpp"

#include <cstring>
#include <string_view>

std::shared_ptr<const char> DDLogMessage::sourceText(const char* text, bool copy) {
    if (!text || !copy) return std::shared_ptr<const char>(std::shared_ptr<const char>(), text);
    const std::size_t size = std::strlen(text) + 1;
    std::shared_ptr<char[]> own(new char[size]);
    std::memcpy(own.get(), text, size);
    return std::shared_ptr<const char>(own, own.get());
}

std::string DDLogMessage::fileName() const {
    std::string_view name = file ? file.get() : "";
    if (const auto slash = name.rfind('/'); slash != std::string_view::npos) name.remove_prefix(slash + 1);
    // A leading dot begins a hidden file's name, not an extension.
    if (const auto dot = name.rfind('.'); dot != std::string_view::npos && dot > 0) name = name.substr(0, dot);
    return std::string(name);
}
