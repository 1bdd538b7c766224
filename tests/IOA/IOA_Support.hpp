#pragma once

#include "IOA/IOA_Protocols.hpp"

#include <sstream>
#include <string>

/// The list as people write it: "A010 D100".
inline std::string TextOf(ioa::Protocols_t const& protocols) {
    std::string text;
    for (ioa::Protocol_t const& protocol : protocols) text += (text.empty() ? "" : " ") + protocol.Str();
    return text;
}

inline ioa::Protocols_t ProtocolsFrom(std::string const& text) {
    ioa::Protocols_t protocols;
    std::istringstream words(text);
    for (ioa::Protocol_t protocol; words >> protocol.tag >> protocol.number;) protocols.push_back(protocol);
    return protocols;
}
