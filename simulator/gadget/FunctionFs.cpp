#include "simulator/gadget/FunctionFs.hpp"

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

void append(Bytes& out, std::initializer_list<std::uint32_t> words) {
    for (const std::uint32_t word : words)
        for (int shift = 0; shift < 32; shift += 8) out.push_back(static_cast<unsigned char>(word >> shift));
}

/// The interface and its endpoints at one speed: 0 makes them full speed (64-byte packets), 1 high speed (512).
void appendInterface(Bytes& out, bool highSpeed) {
    const auto low = [&](std::uint16_t size) { return static_cast<unsigned char>(size & 0xFF); };
    const auto high = [&](std::uint16_t size) { return static_cast<unsigned char>(size >> 8); };
    const std::uint16_t bulk = highSpeed ? 512 : 64;
    const unsigned char interval = highSpeed ? 4 : 1;                           // one millisecond at either speed
    const Bytes bytes = {9, 4, 0,    0, 3,         0xFF,       0,        0, 0,  // interface 0, three endpoints
                         7, 5, 0x81, 3, 64,        0,          interval,        // interrupt in
                         7, 5, 0x82, 2, low(bulk), high(bulk), 0,               // bulk in
                         7, 5, 0x03, 2, low(bulk), high(bulk), 0};              // bulk out
    out.insert(out.end(), bytes.begin(), bytes.end());
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
        writeFile(mGadget + "/strings/0x409/product", profile.unitName.empty() ? "Simulated device" : profile.unitName);
        writeFile(mGadget + "/strings/0x409/serialnumber", std::to_string(profile.unitId));
        fs::create_directories(mGadget + "/configs/c.1");
        fs::create_directory(mGadget + "/functions/" + mFunction);
        fs::create_symlink(mGadget + "/functions/" + mFunction, mGadget + "/configs/c.1/" + mFunction);
        fs::create_directories(mMountPoint);
        if (::mount(name.c_str(), mMountPoint.c_str(), "functionfs", 0, nullptr) != 0) fail("mounting " + mMountPoint);
        mControl = openEndpoint(mMountPoint + "/ep0");
        describe();
        mEndpoints[static_cast<std::size_t>(Pipe::InterruptIn)] = openEndpoint(mMountPoint + "/ep1");
        mEndpoints[static_cast<std::size_t>(Pipe::BulkIn)] = openEndpoint(mMountPoint + "/ep2");
        mEndpoints[static_cast<std::size_t>(Pipe::BulkOut)] = openEndpoint(mMountPoint + "/ep3");
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
    Bytes body;
    append(body, {4, 4});  // descriptors in each of the two sets
    appendInterface(body, false);
    appendInterface(body, true);
    Bytes descriptors;
    append(descriptors, {FUNCTIONFS_DESCRIPTORS_MAGIC_V2, static_cast<std::uint32_t>(body.size() + 12),
                         FUNCTIONFS_HAS_FS_DESC | FUNCTIONFS_HAS_HS_DESC});
    descriptors.insert(descriptors.end(), body.begin(), body.end());
    if (::write(mControl.get(), descriptors.data(), descriptors.size()) < 0) fail("describing the interface");

    Bytes strings;
    append(strings, {FUNCTIONFS_STRINGS_MAGIC, 16, 0, 0});
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
