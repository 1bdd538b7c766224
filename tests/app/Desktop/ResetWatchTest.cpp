// When the computer is kept awake, on a message bus with a login service of the test's own.
#include "app/Desktop/ResetWatch.hpp"
#include "platform/common/FileDescriptor.hpp"
#include "tests/app/AppWorld.hpp"

#include <QApplication>
#include <QDBusConnection>
#include <QDBusError>
#include <QDBusMessage>
#include <QDBusUnixFileDescriptor>
#include <QDBusVirtualObject>
#include <QProcess>
#include <QStringList>
#include <QTest>
#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <fcntl.h>
#include <unistd.h>
#include <vector>

namespace app_test {
namespace {

using namespace std::chrono_literals;

/// Gives out locks, and knows of each whether it is still open.
struct Login final : QDBusVirtualObject {
    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override {
        asked += message.arguments().value(0).toString();
        if (asked.size() == refused) return connection.send(message.createErrorReply(QDBusError::AccessDenied, "no"));
        std::array<int, 2> ends{};
        EXPECT_EQ(::pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK), 0);
        locks.emplace_back(ends[0]);
        const platform::FileDescriptor given(ends[1]);
        return connection.send(message.createReply(QVariant::fromValue(QDBusUnixFileDescriptor(given.get()))));
    }
    QString introspect(const QString&) const override { return {}; }
    auto held() const {
        return std::ranges::count_if(locks, [](const platform::FileDescriptor& lock) {
            char nothing = 0;
            return ::read(lock.get(), &nothing, 1) < 0;  // else its end: nobody has the other one any more
        });
    }
    std::vector<platform::FileDescriptor> locks;
    QStringList asked;
    int refused = 0;  ///< which request, from 1
};

struct ResetWatchTest : testing::Test {
    /// One bus for the whole process: the toolkit connects to the system's once.
    static void SetUpTestSuite() {
        if (bus) return;
        bus = new QProcess(qApp);
        bus->start("dbus-daemon", {"--session", "--nofork", "--print-address"});
        ASSERT_TRUE(bus->waitForReadyRead()) << qPrintable(bus->errorString());
        qputenv("DBUS_SYSTEM_BUS_ADDRESS", bus->readLine().trimmed());
    }
    void SetUp() override {
        auto connection = QDBusConnection::connectToBus(qEnvironmentVariable("DBUS_SYSTEM_BUS_ADDRESS"), "login");
        ASSERT_TRUE(connection.registerVirtualObject("/org/freedesktop/login1", &login));
        ASSERT_TRUE(connection.registerService("org.freedesktop.login1"));
    }
    void TearDown() override { QDBusConnection::disconnectFromBus("login"); }

    inline static QProcess* bus = nullptr;
    Login login;
    AppWorld app;
};

TEST_F(ResetWatchTest, KeepsTheComputerAwakeFromTheFirstDeviceToTheCompleteScreen) {
    ResetWatch watch(*app.outlets.inProgressView, *app.outlets.completeView);
    watch.devicesChanged(true);  // no reset yet
    watch.devicesChanged(false);
    app.show(app.outlets.inProgressView);  // no device yet
    watch.devicesChanged(true);
    EXPECT_TRUE(QTest::qWaitFor([&] { return login.held() == 1; }, 60'000));
    watch.devicesChanged(false);
    app.show(app.outlets.completeView);
    login.refused = 2;
    EXPECT_TRUE(QTest::qWaitFor([&] { return login.held() == 0; }, 60'000));
    watch.devicesChanged(true);
    app.show(app.outlets.inProgressView);
    EXPECT_TRUE(QTest::qWaitFor([&] { return login.held() == 1; }, 60'000)) << "the next reset's";
    EXPECT_EQ(login.locks.size(), 2U);
    EXPECT_EQ(login.asked.join(' '), "sleep:idle:handle-lid-switch sleep:idle:handle-lid-switch sleep:idle");
}

TEST_F(ResetWatchTest, LetsItSleepSomeTimeAfterTheLastDeviceEventAndKeepsItAwakeAgainAtTheNext) {
    ResetWatch watch(*app.outlets.inProgressView, *app.outlets.completeView, 1ms);
    watch.devicesChanged(true);
    app.show(app.outlets.inProgressView);
    for (const std::size_t locks : {1U, 2U}) {
        EXPECT_TRUE(QTest::qWaitFor([&] { return login.locks.size() == locks && login.held() == 0; }, 60'000)) << locks;
        watch.devicesChanged(false);
    }
}

}  // namespace
}  // namespace app_test
