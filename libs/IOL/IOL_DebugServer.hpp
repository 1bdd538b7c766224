#pragma once

#include "WIN/WIN_DebugServer.hpp"

namespace iol {

/// Where all links trace their packet exchange: one server for the process, named "IoLinkDebug.txt", made at the first
/// call and switched on then by win::DefaultDebugToOn(). Any thread.
inline win::DebugServer_t& DebugServer() {
    static win::DebugServer_t server(L"IoLinkDebug.txt", win::DefaultDebugToOn());
    return server;
}

}  // namespace iol
