#include "IOL_DebugServer.hpp"

namespace iol {

win::DebugServer_t& DebugServer() {
    static win::DebugServer_t server(L"IoLinkDebug.txt", win::DefaultDebugToOn());
    return server;
}

}  // namespace iol
