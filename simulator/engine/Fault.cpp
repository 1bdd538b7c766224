#include "simulator/engine/Fault.hpp"

#include <algorithm>

namespace simulator {
namespace {

template <typename T>
bool fits(const std::optional<T>& wanted, const std::optional<T>& given) {
    return !wanted || wanted == given;
}

bool fits(const FaultStep& step, const FaultList::Moment& moment) {
    return step.at == moment.at && fits(step.layer, moment.layer) && fits(step.packetId, moment.packetId) &&
           fits(step.command, moment.command) && fits(step.state, std::optional(moment.state)) &&
           fits(step.operation, moment.operation);
}

}  // namespace

Fault Fault::onPacket(std::uint16_t id, FaultKind kind, std::string name) {
    Fault fault;
    fault.name = std::move(name);
    fault.step.at = FaultStep::At::HostPacket;
    fault.step.packetId = id;
    fault.kind = kind;
    return fault;
}

Fault Fault::onCommand(std::uint16_t command, FaultKind kind, std::string name) {
    Fault fault = onPacket(kCommand, kind, std::move(name));
    fault.step.command = command;
    return fault;
}

Fault Fault::onAnswer(std::uint16_t id, FaultKind kind, std::string name) {
    Fault fault = onPacket(id, kind, std::move(name));
    fault.step.at = FaultStep::At::Answer;
    return fault;
}

Fault Fault::onOperation(BusOperation operation, platform::IOReturn result, unsigned occurrence) {
    Fault fault;
    fault.step.at = FaultStep::At::Operation;
    fault.step.operation = operation;
    fault.step.occurrence = occurrence;
    fault.kind = FaultKind::FailOperation;
    fault.result = result;
    fault.name = std::string("operation fails: ") + platform::IOReturnText(result);
    return fault;
}

void FaultList::add(Fault fault) {
    mPending.push_back({std::move(fault), 0});
}

std::vector<Fault> FaultList::pending() const {
    std::vector<Fault> faults;
    for (const auto& one : mPending) faults.push_back(one.fault);
    return faults;
}

std::vector<Fault> FaultList::commit(const Moment& moment) {
    std::vector<Fault> committed;
    for (auto& one : mPending) {
        if (!fits(one.fault.step, moment) || ++one.seen < one.fault.step.occurrence) continue;
        committed.push_back(one.fault);
        if (one.fault.times > 0) --one.fault.times;
    }
    std::erase_if(mPending, [](const Pending& one) { return one.fault.times == 0; });
    return committed;
}

}  // namespace simulator
