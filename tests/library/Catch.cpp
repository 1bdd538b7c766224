// Catches by class what other shared objects throw: the library itself, and one beside it that uses the library too.
#include "FIL/FIL_File.hpp"
#include "IOA/IOA_Records.hpp"
#include "IOL/IOL_Link.hpp"
#include "IOU/IOU_UsbLink.hpp"
#include "Raise.hpp"
#include "THR/THR_CancelRequested.hpp"
#include "platform/linux/LinuxPlatform.hpp"

#include <cstdio>
#include <functional>

namespace {

int gFaults = 0;

/// Whether a handler for that class takes what the action throws.
template <typename Class>
void expect(const char* name, const std::function<void()>& action) {
    try {
        action();
    } catch (const Class&) {
        return;
    } catch (...) {
    }
    std::fprintf(stderr, "%s: not caught by its class\n", name);
    ++gFaults;
}

struct OwnError {};

/// A link of the program's own. What it throws passes through the library.
class OwnLink final : public iol::Link_t {
  public:
    iol::Frame_t GetFrameWithTimeout(win::Duration_t) override { return {1, {}}; }
    void SendFrameWithTimeout(const iol::Frame_t&, win::Duration_t) override { throw OwnError(); }
    unsigned int MaxPacketSize() const override { return 255; }
};

}  // namespace

int main() {
    const platform::LinuxPlatform platform;
    std::size_t row = 0;
#define THROWN(Class, Above, arguments)         \
    expect<Class>(#Class, [&] { raise(row); }); \
    expect<Above>(#Class, [&] { raise(row); }); \
    ++row;
#include "Exceptions.def"

    OwnLink link;
    ioa::UnitIdPacket_t packet;
    thr::CancelRequestedFunctor_t cancel;
    expect<iol::BadFrame_t>("a frame cut short", [&] { packet.AcceptFrame({ioa::UnitIdPacket_t::gcId, {1, 2}}); });
    expect<glo::FileError_t>("no such file", [] { fil::File_t().Open(L"/nowhere/at/all", fil::OpenMode_t::Read); });
    expect<glo::Timeout_t>("only other packets", [&] { link.GetPacket(packet, win::Duration_t(1)); });
    expect<OwnError>("the program's own", [&] { link.SendPacket(packet, win::Duration_t(1)); });
    expect<int>("no device there", [&] { iou::UsbLink_t(cancel, "/nowhere"); });
    std::printf("%zu classes, %d faults\n", row, gFaults);
    return gFaults == 0 ? 0 : 1;
}
