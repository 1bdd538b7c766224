// One QApplication for the tests of a process.
#include <gtest/gtest.h>

#include <QApplication>
#include <memory>

namespace {

class QtEnvironment final : public testing::Environment {
  public:
    void SetUp() override {
        QApplication::setQuitOnLastWindowClosed(false);
        mApplication = std::make_unique<QApplication>(mCount, mArguments);
    }
    void TearDown() override { mApplication.reset(); }

  private:
    int mCount = 1;
    char mName[9] = "app_test";
    char* mArguments[2] = {mName, nullptr};
    std::unique_ptr<QApplication> mApplication;
};

[[maybe_unused]] const auto* const kEnvironment = testing::AddGlobalTestEnvironment(new QtEnvironment);

}  // namespace
