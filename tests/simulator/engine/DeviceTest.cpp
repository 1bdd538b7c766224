// What the device does right shows in every test of the library and the application; here is what it must refuse, since
// those tests rely on an empty list of refusals.
#include "simulator/world/SimulatedWorld.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <span>
#include <string>
#include <vector>

namespace simulator {
namespace {

Bytes application(std::uint16_t id, Bytes data = {}) {
    return encodePacket({kApplicationLayer, id, std::move(data)});
}
Bytes commandBytes(std::uint16_t command) {
    return application(kCommand, Writer().u16(command).take());
}

TEST(Device, WhatMakesNoSenseIsRefusedRecordedAndWithoutEffect) {
    const struct {
        const char* reason;
        Bytes bytes;
        bool session = true;
        BootState state = BootState::Running;
    } cases[] = {
        {"application packet 254 before a session", application(kProductRequest), false},
        {"shorter than a header: 0 bytes", {}},
        {"unknown layer 1", encodePacket({1, 10, {}})},
        {"reserved bytes are not 0", {20, 0, 0, 1, 10, 0, 0, 0, 0, 0, 0, 0}},
        {"size field says 5, data has 4", {20, 0, 0, 0, 10, 0, 0, 0, 5, 0, 0, 0, 1, 2, 3, 4}},
        {"unknown packet of the USB layer", encodePacket({kUsbLayer, 6, {}})},
        {"unknown packet", application(9999)},
        {"unknown command", commandBytes(9999)},
        {"command without its two bytes", application(kCommand, {0xAE})},
        {"product request with data", application(kProductRequest, {1})},
        {"longer than the largest packet of 4108", application(77, Bytes(4097))},
        {"hold in boot loader while running", application(kHoldInBootLoader)},
        {"clear without hold in boot loader", commandBytes(kClearStore), true, BootState::Starting},
        {"resume boot without hold", application(kResumeBoot), true, BootState::Starting},
        {"packet while rebooting", application(kProductRequest), true, BootState::Rebooting},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(one.reason);
        SimulatedWorld world;
        world.plug();
        Device& device = world.device();
        const std::size_t most = device.profile().pipe(Pipe::BulkOut)->maxPacketSize;
        const auto write = [&](const Bytes& bytes) {
            for (std::size_t at = 0; at <= bytes.size(); at += most) {
                const auto packet = std::span(bytes).subspan(at, std::min(most, bytes.size() - at));
                EXPECT_EQ(device.writePacket(packet, world.clock.now()), Device::WriteResult::Taken);
            }
        };
        if (one.session) write(encodePacket({kUsbLayer, kStartSession, {}}));
        while (device.hasPacket(Pipe::InterruptIn)) device.takePacket(Pipe::InterruptIn);
        device.setBootState(one.state, world.clock.now());
        const auto store = device.store().entries();
        write(one.bytes);
        EXPECT_EQ(device.record().refused(), std::vector<std::string>{one.reason});
        EXPECT_FALSE(device.hasPacket(Pipe::InterruptIn) || device.hasPacket(Pipe::BulkIn));
        EXPECT_EQ(device.bootState(), one.state);
        EXPECT_EQ(device.store().entries(), store);
    }
}

}  // namespace
}  // namespace simulator
