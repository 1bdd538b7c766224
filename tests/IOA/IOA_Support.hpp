#pragma once

#include "IOA/IOA_Protocols.hpp"

#include <sstream>
#include <string>

/// The list as people write it: "A010 D100".
inline std::string TextOf(const ioa::Protocols_t& protocols) {
    std::string text;
    for (const ioa::Protocol_t& protocol : protocols) text += (text.empty() ? "" : " ") + protocol.Str();
    return text;
}

inline ioa::Protocols_t ProtocolsFrom(const std::string& text) {
    ioa::Protocols_t protocols;
    std::istringstream words(text);
    for (ioa::Protocol_t protocol; words >> protocol.tag >> protocol.number;) protocols.push_back(protocol);
    return protocols;
}
