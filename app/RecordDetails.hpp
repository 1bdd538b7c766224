#pragma once

/// The two preferences that switch the library's traces on: "ShowUsbDebug", for what goes over USB, and "ShowDebug" of
/// the registry, for the rest. A run keeps to what they were at its start. Class operations; main thread only.
class RecordDetails {
  public:
    RecordDetails() = delete;

    /// Whether both will hold at the next start.
    [[nodiscard]] static bool isOn();

    /// Sets both. The second one reaches the file a moment later, from the main queue.
    /// @return false when the preferences can't be written; the first may have been changed all the same
    [[nodiscard]] static bool set(bool on);
};
