#include "simulator/gadget/FunctionFs.hpp"

#include "simulator/engine/Wire.hpp"

#include <cerrno>
#include <cstdio>
#include <endian.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <linux/usb/functionfs.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace simulator {
namespace {

namespace fs = std::filesystem;

constexpr const char* kConfigFs = "/sys/kernel/config/usb_gadget/";

[[noreturn]] void fail(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

void writeFile(const std::string& path, const std::string& text) {
    const platform::FileDescriptor file(::open(path.c_str(), O_WRONLY | O_CLOEXEC));
    if (!file || ::write(file.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size()))
        fail("writing " + path);
}

std::string hexadecimal(std::uint16_t value) {
    char text[8];
    std::snprintf(text, sizeof text, "0x%04x", value);
    return text;
}

platform::FileDescriptor openEndpoint(const std::string& path) {
    platform::FileDescriptor endpoint(::open(path.c_str(), O_RDWR | O_CLOEXEC | O_NONBLOCK));
    if (!endpoint) fail("opening " + path);
    return endpoint;
}

std::string firstFreeController() {
    for (const auto& entry : fs::directory_iterator("/sys/class/udc")) {
        std::ifstream function(entry.path() / "function");
        std::string holder;
        if (!(function >> holder)) return entry.path().filename();
    }
    errno = ENODEV;
    fail("looking for a free USB device controller in /sys/class/udc (is dummy_hcd loaded?)");
}

/// The interface and its endpoints at the speed with bulk packets of that size: 64 bytes full speed, 512 high speed.
Bytes interfaceDescriptors(std::uint16_t bulkPacketSize) {
    constexpr int kBefore = 18 + 9;  // the descriptors of device and configuration
    Profile profile;
    for (auto& pipe : profile.pipes)
        if (pipe.transferType == platform::kUSBBulk) pipe.maxPacketSize = bulkPacketSize;
    const Bytes all = usbDescriptors(profile);
    return {all.begin() + kBefore, all.end()};
}

}  // namespace

FunctionFs::FunctionFs(const std::string& name, const std::string& controller, const Profile& profile)
    : mGadget(kConfigFs + name),
      mMountPoint("/run/trovik-gadget." + name),
      mController(controller.empty() ? firstFreeController() : controller),
      mFunction("ffs." + name) {
    reserve(name);
    try {
        writeFile(mGadget + "/idVendor", hexadecimal(profile.vendorId));
        writeFile(mGadget + "/idProduct", hexadecimal(profile.productId));
        writeFile(mGadget + "/bcdDevice", hexadecimal(profile.releaseNumber));
        fs::create_directories(mGadget + "/strings/0x409");
        writeFile(mGadget + "/strings/0x409/manufacturer", "Trovik");
        writeFile(mGadget + "/strings/0x409/product", profile.productName);
        writeFile(mGadget + "/strings/0x409/serialnumber", std::to_string(profile.unitId));
        fs::create_directories(mGadget + "/configs/c.1");
        fs::create_directory(mGadget + "/functions/" + mFunction);
        fs::create_symlink(mGadget + "/functions/" + mFunction, mGadget + "/configs/c.1/" + mFunction);
        fs::create_directories(mMountPoint);
        if (::mount(name.c_str(), mMountPoint.c_str(), "functionfs", 0, nullptr) != 0) fail("mounting " + mMountPoint);
        mControl = openEndpoint(mMountPoint + "/ep0");
        describe();
        for (const Pipe pipe : {Pipe::InterruptIn, Pipe::BulkIn, Pipe::BulkOut}) {
            const auto index = static_cast<std::size_t>(pipe);
            mEndpoints[index] = openEndpoint(mMountPoint + "/ep" + std::to_string(index + 1));
        }
    } catch (...) {
        tearDown();
        throw;
    }
}

FunctionFs::~FunctionFs() {
    tearDown();
}

/// What a killed process leaves behind is unbound and has no lock, since both end with its descriptors: it is removed.
void FunctionFs::reserve(const std::string& name) {
    const auto lock = [&] {
        fs::create_directory(mGadget);
        mReservation = platform::FileDescriptor(::open(mGadget.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        if (!mReservation) fail("opening " + mGadget);
        if (::flock(mReservation.get(), LOCK_EX | LOCK_NB) != 0)
            throw std::runtime_error("a gadget of the name " + name + " is running; choose another one with --name");
    };
    const bool leftover = fs::exists(mGadget);
    lock();
    if (!leftover) return;
    std::string controller;
    if (std::ifstream(mGadget + "/UDC") >> controller)
        throw std::runtime_error(mGadget + " belongs to another program; choose another name with --name");
    tearDown();
    lock();
}

void FunctionFs::describe() {
    const Bytes fullSpeed = interfaceDescriptors(64);
    const Bytes highSpeed = interfaceDescriptors(512);
    Writer head;
    head.u32(FUNCTIONFS_DESCRIPTORS_MAGIC_V2);
    head.u32(static_cast<std::uint32_t>(20 + fullSpeed.size() + highSpeed.size()));  // bytes, these 20 included
    head.u32(FUNCTIONFS_HAS_FS_DESC | FUNCTIONFS_HAS_HS_DESC);
    head.u32(4).u32(4);  // descriptors in each of the two sets
    Bytes descriptors = head.take();
    for (const Bytes* const set : {&fullSpeed, &highSpeed})
        descriptors.insert(descriptors.end(), set->begin(), set->end());
    if (::write(mControl.get(), descriptors.data(), descriptors.size()) < 0) fail("describing the interface");

    const Bytes strings = Writer().u32(FUNCTIONFS_STRINGS_MAGIC).u32(16).u32(0).u32(0).take();
    if (::write(mControl.get(), strings.data(), strings.size()) < 0) fail("naming the interface");
}

void FunctionFs::bind() {
    writeFile(mGadget + "/UDC", mController);
    mBound = true;
}

void FunctionFs::unbind() {
    if (!std::exchange(mBound, false)) return;
    writeFile(mGadget + "/UDC", "\n");
}

std::optional<std::uint16_t> FunctionFs::packetSize(Pipe pipe) const {
    usb_endpoint_descriptor descriptor{};
    if (::ioctl(endpoint(pipe), FUNCTIONFS_ENDPOINT_DESC, &descriptor) < 0) return std::nullopt;
    return le16toh(descriptor.wMaxPacketSize);
}

/// Undoes whatever part of the set-up has been done. configfs wants it in exactly this order.
void FunctionFs::tearDown() noexcept {
    std::error_code ignored;
    try {
        unbind();
    } catch (const std::system_error&) {
        // The controller has gone; everything below still has to be removed.
    }
    for (auto& endpoint : mEndpoints) endpoint.reset();
    mControl.reset();
    ::umount2(mMountPoint.c_str(), MNT_DETACH);  // where nothing is mounted it does nothing
    fs::remove(mMountPoint, ignored);
    fs::remove(mGadget + "/configs/c.1/" + mFunction, ignored);
    fs::remove(mGadget + "/configs/c.1", ignored);
    fs::remove(mGadget + "/functions/" + mFunction, ignored);
    fs::remove(mGadget + "/strings/0x409", ignored);
    fs::remove(mGadget, ignored);
    mReservation.reset();
}

}  // namespace simulator
