#include "libs/IOU/mac/IOU_Session.hpp"

#include "GLO/GLO_Assert.hpp"
#include "GLO/GLO_Exception.hpp"
#include "IOU/IOU_Exception.hpp"
#include "libs/IOU/IOU_Trace.hpp"
#include "libs/IOU/IOU_UsbPacket.hpp"
#include "libs/IOU/mac/IOU_Device.hpp"
#include "platform/Platform.hpp"

#include <utility>

namespace iou {
namespace {

constexpr char gcFile[] = "libs/IOU/mac/IOU_Session";

// Stable identifiers of the raise sites, known to support; not this file's lines.
constexpr std::uint16_t gcStartTimeoutLine = 116;
constexpr std::uint16_t gcSendTimeoutLine = 230;
constexpr std::uint16_t gcReceiveTimeoutLine = 258;

constexpr platform::CFTimeInterval gcOneYear = 31536000;  ///< seconds
constexpr platform::CFTimeInterval gcSlice = 0.2;         ///< seconds; longest run of the loop between two looks
constexpr win::Duration_t gcStartAttempt{500};            ///< each half of an attempt
constexpr std::size_t gcKeepingPerPacket = 64;            ///< bytes a queued packet counts for besides its own

std::size_t QueuedSize(std::size_t dataSize) {
    return gcUsbPacketHeaderSize + dataSize + gcKeepingPerPacket;
}

}  // namespace

platform::CFAbsoluteTime ConvertDurationToAbsoluteTime(win::Duration_t duration) {
    return platform::CFAbsoluteTimeGetCurrent() +
           (duration == win::gcDurationInfinite ? gcOneYear : duration.Seconds());
}

Session_t::Session_t(const std::string& registryPath, win::Duration_t timeout)
    : mRunLoop(platform::CFRunLoopGetCurrent()), mRunLoopMode(platform::CFUUIDCreateString()) {
    Trace("Constructing Session\n");
    try {
        Start(registryPath, timeout);
    } catch (...) {
        Abandon(registryPath);
        throw;
    }
    Trace("Session constructed.\n");
}

Session_t::~Session_t() {
    AssertOwnerThread();
    mDevice.reset();
    Trace("Session ended.\n");
}

void Session_t::Start(const std::string& registryPath, win::Duration_t timeout) {
    const platform::CFAbsoluteTime deadline = ConvertDurationToAbsoluteTime(timeout);
    mDevice = std::make_unique<Device_t>(registryPath, *this, *mRunLoop, RunLoopMode());
    CheckForError();

    std::optional<std::uint32_t> unitId;
    while (!(unitId = TryToStart())) {
        if (platform::CFAbsoluteTimeGetCurrent() < deadline) continue;
        Trace("iou::Session_t::Session_t timed out waiting for start session response\n");
        throw glo::Timeout_t(gcFile, gcStartTimeoutLine);
    }
    mUnitId = *unitId;

    // A size that leaves no room behind the header is no answer: no packet with data fits.
    const auto size = Ask(gcPacketIdAskMaxPacketSize, gcPacketIdMaxPacketSize, timeout);
    if (size && *size > gcUsbPacketHeaderSize)
        mMaxPacketSize = *size - static_cast<std::uint32_t>(gcUsbPacketHeaderSize);
}

/// One attempt looks at one packet: whatever was left over from an earlier session costs an attempt each.
std::optional<std::uint32_t> Session_t::TryToStart() {
    try {
        return Ask(gcPacketIdStartSession, gcPacketIdSessionStarted, gcStartAttempt);
    } catch (const glo::Timeout_t&) {
        return std::nullopt;
    }
}

/// The number in the next packet, if that is the answer to the question and comes in time.
std::optional<std::uint32_t> Session_t::Ask(std::uint16_t question, std::uint16_t answer, win::Duration_t timeout) {
    SendFrameWithTimeout(iol::Frame_t(question, nullptr, 0), Layer_t::UsbProtocol, timeout);
    WaitForFrameWithTimeout(timeout);
    if (mReceived.empty()) return std::nullopt;
    const Received_t received = TakePacket();
    return UsbPacket_t{received.layer, received.frame.Id(), received.frame.Bytes()}.ControlValue(answer);
}

/// The exception that ends construction may say no more than "1", so what was reported goes to the system log.
void Session_t::Abandon(const std::string& registryPath) {
    Trace("iou::Session_t::Session_t - Failed\n");
    const bool wasOpened = mDevice != nullptr;
    mDevice.reset();
    if (!mError) return;
    const auto [code, file, line] = *mError;
    std::string reason;
    if (!wasOpened) reason = platform::openFailureText(registryPath, code == 0 ? platform::kIOReturnUnsupported : code);
    if (reason.empty())
        reason = std::string("The USB device can't be used: ") +
                 (code == 0 ? "not fit for it" : platform::IOReturnText(code));
    platform::NSLog("%s (0x%08X) at %s, %d\n", reason.c_str(), static_cast<unsigned>(code), file, line);
}

void Session_t::SendFrameWithTimeout(const iol::Frame_t& frame, Layer_t layer, win::Duration_t timeout) {
    AssertOwnerThread();
    CheckForError();
    WriteUsbPacket(layer, frame.Id(), frame.Bytes(), mOutgoing);
    mWriteIsPending = true;
    mDevice->WriteAsync(mOutgoing);
    WaitWhile([this] { return mWriteIsPending; }, timeout);
    CheckForError();
    if (mWriteIsPending) {
        Trace("iou::Session_t::SendFrameWithTimeout - Timed out waiting to send frame\n");
        throw glo::Timeout_t(gcFile, gcSendTimeoutLine);
    }
    Trace("SendFrameWithTimeout complete. Layer: ", layer, " Id: ", frame.Id(), " Size: ", frame.Size(), "\n");
}

iol::Frame_t Session_t::GetFrameWithTimeout(win::Duration_t timeout) {
    WaitForFrameWithTimeout(timeout);
    if (mReceived.empty()) {
        Trace("Session_t::GetFrameWithTimeout - Timed out waiting to receive frame\n");
        throw glo::Timeout_t(gcFile, gcReceiveTimeoutLine);
    }
    iol::Frame_t frame = TakePacket().frame;
    Trace("GetFrameWithTimeout complete. Id: ", frame.Id(), " Size: ", frame.Size(), "\n");
    return frame;
}

void Session_t::WaitForFrameWithTimeout(win::Duration_t timeout) {
    AssertOwnerThread();
    WaitWhile([this] { return mReceived.empty(); }, timeout);
    CheckForError();
}

void Session_t::CheckForError() const {
    if (mError) throw BadUsbDevice_t(mError->file, mError->line);
}

void Session_t::SavePacket(const UsbPacket_t& packet) {
    if (mQueuedBytes + QueuedSize(packet.data.size()) > gcMaxQueuedBytes) {
        Trace("Packet discarded!\nNobody fetches what has been received\n");
        return;
    }
    const auto size = static_cast<std::uint32_t>(packet.data.size());
    mReceived.push_back({packet.layer, iol::Frame_t(packet.id, packet.data.data(), size)});
    mQueuedBytes += QueuedSize(size);
}

Session_t::Received_t Session_t::TakePacket() {
    Received_t received = std::move(mReceived.front());
    mReceived.pop_front();
    mQueuedBytes -= QueuedSize(received.frame.Size());
    return received;
}

void Session_t::ReportErrorWithCode(platform::IOReturn code, const char* file, std::uint16_t line) {
    if (!mError) mError = {code, file, line};
}

void Session_t::StartTimer(win::Duration_t duration) {
    // The handler has nothing to do: a one-shot timer that has fired is no longer valid, and that ends the wait.
    mTimer = mRunLoop->CFRunLoopAddTimer(mRunLoopMode, ConvertDurationToAbsoluteTime(duration), 0, [] {});
}

template <typename IsPending>
void Session_t::WaitWhile(IsPending isPending, win::Duration_t timeout) {
    if (ErrorOccurred() || !isPending()) return;  // nothing to wait for: no timer either
    StartTimer(timeout);
    const struct Stop_t {  // however the wait ends, no timer is left in the loop
        Session_t& session;
        ~Stop_t() { session.StopTimer(); }
    } stop{*this};
    while (!ErrorOccurred() && isPending() && TimerIsRunning())
        mRunLoop->CFRunLoopRunInMode(mRunLoopMode, gcSlice, true);
}

void Session_t::AssertOwnerThread() const {
    glo::Assert(std::this_thread::get_id() == mOwner, gcFile, __LINE__);
}

}  // namespace iou
