// A window that stays awake while a worker talks to the device: the worker posts what it found back to the window.
#include "GLO/GLO_Exception.hpp"
#include "GLO/GLO_String.hpp"
#include "IOA/IOA_Channel.hpp"
#include "IOU/IOU_Devices.hpp"
#include "IOU/IOU_UsbLink.hpp"
#include "THR/THR_CancelRequested.hpp"
#include "platform/linux/LinuxPlatform.hpp"

#include <QApplication>
#include <QLabel>
#include <QString>

#include <cstdio>
#include <string>
#include <thread>

namespace {

/// What the worker does. Nothing of the library's gets past it.
std::string nameOfFirstDevice() try {
    const auto devices = iou::AttachedDevices();
    if (devices.empty()) return "No device is attached";
    thr::CancelRequestedFunctor_t cancel;
    iou::UsbLink_t link(cancel, devices.front().path);
    const ioa::Channel_t channel(link);
    return glo::string(channel.Product().DisplayName(), glo::gcUtf8Encoding);
} catch (const glo::Exception_t& error) {
    return "The device failed: " + error.NarrowMessage();
} catch (int) {
    return "The device could not be opened";
}

}  // namespace

int main(int argc, char** argv) {
    const platform::LinuxPlatform platform;  // before any thread, and longer than the worker
    const QApplication application(argc, argv);
    QLabel label(QStringLiteral("Looking for a device"));
    label.show();

    std::thread worker([&label] {
        const std::string text = nameOfFirstDevice();
        // Runs on the window's thread.
        QMetaObject::invokeMethod(&label, [&label, text] {
            label.setText(QString::fromStdString(text));
            std::printf("%s\n", text.c_str());
            if (QGuiApplication::platformName() == QLatin1String("offscreen")) QApplication::quit();  // nobody looks
        });
    });
    const int status = QApplication::exec();
    worker.join();
    return status;
}
