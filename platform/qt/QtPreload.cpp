#include "platform/qt/QtPreload.hpp"

#include <QByteArray>
#include <QLibraryInfo>
#include <QString>
#include <QThread>
#include <fontconfig/fontconfig.h>

#include <dlfcn.h>
#include <string>
#include <system_error>

namespace platform {
namespace {

/// The window system's plug-in where it can be told beforehand, else empty.
std::string platformPlugin() {
    std::string chosen = qgetenv("QT_QPA_PLATFORM").toStdString();
    // Under Wayland the toolkit's choice depends on the desktop.
    if (chosen.empty() && qgetenv("XDG_SESSION_TYPE") != "wayland" && !qEnvironmentVariableIsEmpty("DISPLAY")) {
        chosen = "xcb";
    }
    return chosen.substr(0, chosen.find_first_of(":;"));  // options and second choices follow
}

}  // namespace

QtPreload::QtPreload() {
    QThread::currentThread();  // the toolkit takes the first thread that it sees for the main one
    const std::string platform = platformPlugin();
    if (!platform.empty()) {
        const auto plugin =
            QLibraryInfo::path(QLibraryInfo::PluginsPath).toStdString() + "/platforms/libq" + platform + ".so";
        try {
            // Lazy binding, as the toolkit itself loads. Never closed: it is to be found loaded.
            mPlugin = std::thread([plugin] { dlopen(plugin.c_str(), RTLD_LAZY); });
        } catch (const std::system_error&) {
            // No thread to be had: the toolkit loads it.
        }
    }
    FcInit();
}

QtPreload::~QtPreload() {
    if (mPlugin.joinable()) mPlugin.join();
}

}  // namespace platform
