// Tests a program's own logic without a device: here what it says of a device's software. The link is an object of the
// test, which answers what the channel asks; the channel and all packets are the library's own.
#include "GLO/GLO_Exception.hpp"
#include "GLO/GLO_String.hpp"
#include "IOA/IOA_Channel.hpp"
#include "IOA/IOA_ProductData.hpp"
#include "IOL/IOL_Frame.hpp"
#include "IOL/IOL_Link.hpp"
#include "platform/linux/LinuxPlatform.hpp"

#include <cstdio>
#include <deque>

namespace {

/// The program's own logic.
bool needsUpdate(iol::Link_t& link) {
    return ioa::Channel_t(link).Product().softwareVersion < 250;
}

/// Answers the question for the product data (254) with a model and a protocol list, and nothing else.
class TestLink final : public iol::Link_t {
  public:
    explicit TestLink(short version) : mVersion(version) {}

    iol::Frame_t GetFrameWithTimeout(win::Duration_t) override {
        if (mAnswers.empty()) throw glo::Timeout_t("own_link", __LINE__);
        iol::Frame_t frame = mAnswers.front();
        mAnswers.pop_front();
        return frame;
    }
    void SendFrameWithTimeout(const iol::Frame_t& frame, win::Duration_t) override {
        if (frame.Id() != 254) return;
        ioa::ProductData_t product;
        product.productId = 1000;
        product.softwareVersion = mVersion;
        product.descriptions = {L"Trailmate 300"};
        mAnswers.push_back(product.ProduceFrame());
        mAnswers.push_back({253, {'P', 0, 0, 'L', 1, 0, 'A', 10, 0}});
    }
    unsigned int MaxPacketSize() const override { return 255; }

  private:
    const short mVersion;
    std::deque<iol::Frame_t> mAnswers;
};

}  // namespace

int main() {
    const platform::LinuxPlatform platform;
    TestLink old(230);
    TestLink current(310);
    const bool isRight = needsUpdate(old) && !needsUpdate(current);
    std::puts(isRight ? "as it should be" : "wrong");
    return isRight ? 0 : 1;
}
