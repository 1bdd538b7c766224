#include "simulator/engine/Types.hpp"

namespace simulator {

const char* pipeName(Pipe pipe) {
    switch (pipe) {
        case Pipe::InterruptIn:
            return "interrupt in";
        case Pipe::BulkIn:
            return "bulk in";
        case Pipe::BulkOut:
            return "bulk out";
    }
    return "";
}

const char* bootStateName(BootState state) {
    switch (state) {
        case BootState::Running:
            return "running";
        case BootState::Rebooting:
            return "rebooting";
        case BootState::Starting:
            return "starting";
        case BootState::HeldInBootLoader:
            return "held in boot loader";
    }
    return "";
}

}  // namespace simulator
