#include "IOU/IOU_DebugServer.hpp"

#include "platform/NSUserDefaults.hpp"
#include "platform/Platform.hpp"

namespace iou {

win::DebugServer_t& DebugServer() {
    static win::DebugServer_t server(L"IouUsbDebug", platform::standardUserDefaults().boolForKey("ShowUsbDebug"));
    return server;
}

}  // namespace iou
