// One QApplication for the tests of a process.
#include <QApplication>
#include <gtest/gtest.h>

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    // Whoever lists or runs the tests by hand need not know of it.
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication::setQuitOnLastWindowClosed(false);
    const QApplication application(argc, argv);
    return RUN_ALL_TESTS();
}
