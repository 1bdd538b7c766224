#pragma once

#include "IOU/IOU_UsbLink.hpp"
#include "THR/THR_CancelRequested.hpp"
#include "cli/Outcome.hpp"
#include "cli/UsbGate.hpp"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace twin {

/// The diagnosis where nothing is known beyond the result, as of a simulated device.
[[nodiscard]] Failure plainDiagnosis(const std::string& path, platform::IOReturn result);
/// That of this system.
[[nodiscard]] Failure systemDiagnosis(const std::string& path, platform::IOReturn result);

/// What a device says of itself, and where it is.
struct Identity {
    std::uint32_t unit = 0;  ///< 0: it reports none
    std::string product;     ///< its model, for people
    std::uint16_t productId = 0;
    std::int16_t softwareVersion = 0;  ///< hundredths
};

/// One opening of a device: a link that lives as long as this object, behind a gate. It belongs to the thread that made
/// it. No exception of the library leaves it.
class DeviceVisit {
  public:
    /// Finds out why a device at a registry path could not be opened.
    using Diagnosis = std::function<Failure(const std::string& path, platform::IOReturn result)>;

    /// @param gate, diagnosis  borrowed; must outlive the visit
    DeviceVisit(std::string path, UsbGate& gate, const Diagnosis& diagnosis)
        : mPath(std::move(path)), mGate(gate), mDiagnosis(diagnosis), mScope(gate) {}

    /// Opens the device and starts a session. Blocks. Once, before the rest.
    /// @return why not; the device is closed again
    [[nodiscard]] std::optional<Failure> open();

    [[nodiscard]] std::uint32_t unitId() const { return mLink->UnitId(); }

    /// One of the stages that are done over a link: sends the command, or for IdentifiedAgain only identifies.
    /// @param aboutToSend  called right before the command leaves
    /// @param deadline     the moment at which it is cut off
    /// Blocks.
    [[nodiscard]] std::optional<Failure> run(Stage stage, double deadline, const std::function<void()>& aboutToSend);

    /// What the device says of itself. Blocks.
    [[nodiscard]] std::optional<Failure> identify(Identity& identity);

  private:
    template <typename Action>
    std::optional<Failure> guarded(const Action& action);
    Failure closedGate() const;

    const std::string mPath;
    UsbGate& mGate;
    const Diagnosis& mDiagnosis;
    const UsbGate::Scope mScope;
    thr::CancelRequestedFunctor_t mNoCancelSource;
    std::unique_ptr<iou::UsbLink_t> mLink;
};

}  // namespace twin
