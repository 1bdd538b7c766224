#include "IOL_DebugServer.hpp"

namespace iol {

// Never destroyed: the listener thread may still trace an exchange while the main thread exits.
win::DebugServer_t& DebugServer() {
    static win::DebugServer_t& server = *new win::DebugServer_t(L"IoLinkDebug.txt", win::DefaultDebugToOn());
    return server;
}

}  // namespace iol
