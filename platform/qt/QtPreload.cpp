#include "platform/qt/QtPreload.hpp"

#include "platform/Boundary.hpp"

#include <QByteArray>
#include <QLibraryInfo>
#include <QString>
#include <QThread>
#include <fontconfig/fontconfig.h>

#include <dlfcn.h>
#include <filesystem>
#include <string>
#include <system_error>
#include <utility>

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

/// Lazy binding, as the toolkit itself loads. Never closed: it is to be found loaded.
void load(const std::filesystem::path& library) {
    dlopen(library.c_str(), RTLD_LAZY);
}

void loadPlugins(const std::filesystem::path& folder, const std::string& platform) {
    if (!platform.empty()) load(folder / "platforms" / ("libq" + platform + ".so"));
    if (platform == "xcb") {
        load("libXcursor.so.1");
        load(folder / "platforminputcontexts/libcomposeplatforminputcontextplugin.so");
    }
    // The first picture that is read has all of them loaded, to ask each whether the picture is of its kind.
    std::error_code error;
    for (std::filesystem::directory_iterator file(folder / "imageformats", error), end; !error && file != end;
         file.increment(error)) {
        load(file->path());
    }
}

}  // namespace

QtPreload::QtPreload() {
    QThread::currentThread();  // the toolkit takes the first thread that it sees for the main one
    const std::filesystem::path folder = QLibraryInfo::path(QLibraryInfo::PluginsPath).toStdString();
    try {
        mPlugins = std::thread([folder, platform = platformPlugin()] {
            try {
                loadPlugins(folder, platform);
            } catch (...) {
                LogCaughtException("QtPreload", __LINE__);
            }
        });
    } catch (const std::system_error&) {
        // No thread to be had: the toolkit loads them.
    }
    FcInit();
}

QtPreload::~QtPreload() {
    if (mPlugins.joinable()) mPlugins.join();
}

}  // namespace platform
