#include "IOU/IOU_DebugServer.hpp"

#include "platform/NSUserDefaults.hpp"
#include "platform/Platform.hpp"

namespace iou {

// Never destroyed: the listener thread may still trace its device while the main thread exits.
win::DebugServer_t& DebugServer() {
    static win::DebugServer_t& server =
        *new win::DebugServer_t(L"IouUsbDebug", platform::standardUserDefaults().boolForKey("ShowUsbDebug"));
    return server;
}

}  // namespace iou
