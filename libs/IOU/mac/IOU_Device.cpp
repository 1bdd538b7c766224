#include "libs/IOU/mac/IOU_Device.hpp"

#include "libs/IOU/mac/IOU_InPipe.hpp"
#include "libs/IOU/mac/IOU_OutPipe.hpp"
#include "libs/IOU/mac/IOU_PipeEvents.hpp"
#include "platform/CFRunLoop.hpp"
#include "platform/IORegistry.hpp"
#include "platform/IOUSB.hpp"
#include "platform/Platform.hpp"
#include "platform/VendorId.hpp"

namespace iou {
namespace {

constexpr char gcFile[] = "libs/IOU/mac/IOU_Device";

// Stable identifiers of the steps that can fail, known to support; not this file's lines.
constexpr std::uint16_t gcPlugInLine = 51;
constexpr std::uint16_t gcDeviceInterfaceLine = 69;
constexpr std::uint16_t gcDeviceOpenLine = 81;
constexpr std::uint16_t gcConfigurationLine = 91;
constexpr std::uint16_t gcSetConfigurationLine = 101;
constexpr std::uint16_t gcVendorLine = 109;
constexpr std::uint16_t gcProductLine = 117;
constexpr std::uint16_t gcReleaseLine = 126;
constexpr std::uint16_t gcIdentityLine = 134;
constexpr std::uint16_t gcInterfaceIteratorLine = 153;
constexpr std::uint16_t gcNoInterfaceLine = 160;
constexpr std::uint16_t gcInterfacePlugInLine = 194;
constexpr std::uint16_t gcInterfaceOpenLine = 203;
constexpr std::uint16_t gcEventSourceLine = 217;

}  // namespace

Device_t::Device_t(const std::string& registryPath, PipeEventsIntf_t& events, platform::CFRunLoop& loop,
                   std::string_view mode)
    : Device_t(events, loop) {
    Open(registryPath, mode);  // where it throws, the destructor runs: the constructor above has ended
}

Device_t::Device_t(PipeEventsIntf_t& events, platform::CFRunLoop& loop) : mEvents(events), mRunLoop(loop) {}

Device_t::~Device_t() {
    Cleanup();
}

void Device_t::WriteAsync(std::span<const unsigned char> bytes) {
    mOutPipe->WriteAsync(bytes);
}

void Device_t::Open(const std::string& registryPath, std::string_view mode) {
    OpenDevice(registryPath);
    CheckIdentity();
    OpenInterface();
    mInPipe = std::make_unique<InPipe_t>(mEvents, platform::kUSBInterrupt, *mInterface);
    mOutPipe = std::make_unique<OutPipe_t>(mEvents, platform::kUSBBulk, *mInterface);

    // Kept before it is added: what fails after that is undone with it.
    Require(mInterface->CreateInterfaceAsyncEventSource(mEventSource), gcEventSourceLine);
    mRunLoop.CFRunLoopAddSource(mEventSource, mode);
    mInPipe->ReadAsync();
}

void Device_t::OpenDevice(const std::string& registryPath) {
    std::unique_ptr<platform::IOCFPlugInInterface> plugIn;
    {
        const auto service = platform::kIOMasterPortDefault().IORegistryEntryFromPath(registryPath);
        Require(service ? service->IOCreatePlugInInterfaceForService(
                              platform::IOUserClientType::kIOUSBDeviceUserClientTypeID, plugIn)
                        : platform::kIOReturnNoDevice,
                gcPlugInLine);
    }
    Require(plugIn->QueryInterface(mDevice), gcDeviceInterfaceLine);
    plugIn.reset();

    Require(mDevice->USBDeviceOpen(), gcDeviceOpenLine);
    mOpened = Opened_t::Device;
    platform::IOUSBConfigurationDescriptor configuration;
    Require(mDevice->GetConfigurationDescriptorPtr(0, configuration), gcConfigurationLine);
    Require(mDevice->SetConfiguration(configuration.bConfigurationValue), gcSetConfigurationLine);
}

/// What stands at the path may have changed since discovery saw it.
void Device_t::CheckIdentity() {
    std::uint16_t vendor = 0;
    std::uint16_t product = 0;
    std::uint16_t release = 0;
    Require(mDevice->GetDeviceVendor(vendor), gcVendorLine);
    Require(mDevice->GetDeviceProduct(product), gcProductLine);
    Require(mDevice->GetDeviceReleaseNumber(release), gcReleaseLine);
    if (vendor != platform::kTrovikVendorId || product != platform::kTrovikProductId ||
        release != platform::kTrovikReleaseNumber)
        mEvents.Refuse(gcFile, gcIdentityLine);
}

std::unique_ptr<platform::IOService> Device_t::FirstInterface() {
    std::unique_ptr<platform::IOIterator> interfaces;
    Require(mDevice->CreateInterfaceIterator(platform::IOUSBFindInterfaceRequest{}, interfaces),
            gcInterfaceIteratorLine);
    auto first = interfaces->IOIteratorNext();
    if (!first) mEvents.Refuse(gcFile, gcNoInterfaceLine);
    return first;
}

void Device_t::OpenInterface() {
    const auto service = FirstInterface();
    std::unique_ptr<platform::IOCFPlugInInterface> plugIn;
    Require(
        service->IOCreatePlugInInterfaceForService(platform::IOUserClientType::kIOUSBInterfaceUserClientTypeID, plugIn),
        gcInterfacePlugInLine);
    Require(plugIn->QueryInterface(mInterface), gcInterfacePlugInLine);
    Require(mInterface->USBInterfaceOpen(), gcInterfaceOpenLine);
    mOpened = Opened_t::Interface;
}

/// No completion is delivered in here: what the aborts complete is dropped when the interface closes, and so none ever
/// meets a pipe that has gone.
void Device_t::Cleanup() {
    mOutPipe.reset();
    mInPipe.reset();
    if (mOpened == Opened_t::Interface) {
        if (mEventSource) mRunLoop.CFRunLoopRemoveSource(mEventSource);
        mInterface->USBInterfaceClose();
    }
    mInterface.reset();
    if (mOpened != Opened_t::Nothing) mDevice->USBDeviceClose();
    mDevice.reset();
    mEventSource.reset();
}

void Device_t::Require(platform::IOReturn result, std::uint16_t line) {
    mEvents.Require(result, gcFile, line);
}

}  // namespace iou
