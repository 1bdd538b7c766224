// What the switches have to be on for. Read once in a process, they have a program of their own.
#include <gmock/gmock.h>

#include "tests/app/RealTimeApp.hpp"
#include "tests/support/RealTimeBackend.hpp"

namespace app_test {
namespace {

using testing::HasSubstr;

/// The tool with both trace switches on.
struct TracedResetTest : testing::Test {
    static simulator::MemoryDefaults& defaults() {
        static simulator::MemoryDefaults memory;
        using platform::PropertyList;
        memory.values["ShowUsbDebug"].value = true;
        PropertyList node{PropertyList::Data{1}};
        for (const char* const key : {"ShowDebug", "Settings", "Trovik", "Software"})
            node = {PropertyList::Dictionary{{key, node}}};
        memory.values["RegistryRoot"] = node;
        return memory;
    }

    support::RealTimeBackend usb{simulator::Profile::instant()};
    RealTimeApp app{usb, &defaults()};
};

TEST_F(TracedResetTest, LeavesATraceInWhichEachPacketCanBeFollowed) {
    app.plug();
    app.reset();
    const std::string packetTrace = support::ReadFile(RealTimeApp::folder() / "Trovik/IouUsbDebug.log");
    const std::string linkTrace = support::ReadFile(RealTimeApp::folder() / "Trovik/IoLinkDebug.txt.log");
    std::size_t sent = 0;
    for (const simulator::Bytes& bytes : expectedTrafficOfAReset()) {
        const std::string line = "SendFrameWithTimeout complete. Layer: " + std::to_string(bytes[0]) +
                                 " Id: " + std::to_string(bytes[4] | bytes[5] << 8) +
                                 " Size: " + std::to_string(bytes.size() - 12) + "\n";
        sent = packetTrace.find(line, sent);
        ASSERT_NE(sent, std::string::npos) << line << " in\n" << packetTrace;
        sent += line.size();
    }
    EXPECT_THAT(packetTrace, HasSubstr("GetFrameWithTimeout complete. Id: 113 Size: 0\n"));
    EXPECT_THAT(linkTrace, HasSubstr("looking for packet id: 113: Timeout = 3000\n"));
}

}  // namespace
}  // namespace app_test
