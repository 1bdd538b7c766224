#include "tests/support/RealTimeBackend.hpp"
#include "tests/support/UsbContract.hpp"
#include "tests/support/WorldBackend.hpp"

INSTANTIATE_TYPED_TEST_SUITE_P(InProcessInSimulatedTime, UsbContract, support::WorldBackend);
INSTANTIATE_TYPED_TEST_SUITE_P(InProcessInRealTime, UsbContract, support::RealTimeBackend);
