#include "tests/support/UmockBackend.hpp"
#include "tests/support/UsbContract.hpp"

namespace {

struct OnTerminalNode : support::UmockBackend {
    OnTerminalNode() : UmockBackend(Node::Terminal) {}
};

}  // namespace

INSTANTIATE_TYPED_TEST_SUITE_P(RealLibrariesOnQueue, UsbContract, support::UmockBackend);
INSTANTIATE_TYPED_TEST_SUITE_P(RealLibrariesOnTerminal, UsbContract, OnTerminalNode);
