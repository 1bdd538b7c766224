#pragma once

#include "app/TrovikMode/USBRegistryInfo.hpp"
#include "cli/Outcome.hpp"

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace twin {

/// One device's reset as a state machine. It has no thread, no clock and no device: it is told what happened and when,
/// and answers what it waits for. Whoever drives it serialises the calls; moments are seconds that never go backwards.
///
///     begin                    the device's own entry is opened          another entry at its port, or anywhere
///       │                                                                with its unit id, is opened
///       ▼                                                                          │
///     Quit ──────► Reboot ──────────────► Gone ──────────────► Back ───────────────┴─► Hold ──► Clear
///                  ▲   ordered: the device leaves  its entry is gone                     │        │
///                  │                                                                     │        ▼
///                  └── a failure up to the clear, while there are retries ◄──────────────┴──── Resume ◄─┐ retries,
///                                                                                                 │  └──┘ fresh link
///     done ◄── IdentifiedAgain ◄── BackAgain ◄────────────────────────────────────────────────────┘
///                                  another entry, or its own if that has not left within kSettle;
///                                  what may still be held is first told to start (Resume) there
///
/// Every stage has a limit. A limit that passes before the clear is a failure like any other, except that a device that
/// has not come back can't be told to reboot; after the clear nothing is ever cleared again, only awaited, and the
/// limit means "cleared, but not seen again". A cancel, and a failure that ends it all, leave nothing half-way: a
/// device that is, or may be, held is told to start once more over a fresh link (Resume again) before the sequence is
/// over.
class ResetSequence {
  public:
    /// What the device does, as far as its host can know.
    enum class Boot {
        Untouched,
        Rebooting,    ///< told to, and not held before; it starts by itself
        PerhapsHeld,  ///< an earlier run has left it held; or "hold" may have reached it; or a reboot of one that is
                      ///< held, or "resume", may not have
        Held,
        Started,  ///< "resume" has reached it
        Back,     ///< has identified itself again
    };

    /// The clear command has no answer. Once it has left, only an answer to something after it, at the same attach,
    /// tells that the device has come to it.
    enum class Clear { NotSent, Sent, Done };

    struct Plan {
        std::array<double, kStages.size()> limits = usualLimits();  ///< seconds
        int retries = 1;
        bool quitsStation = true;

        double limit(Stage stage) const { return limits[static_cast<std::size_t>(stage)]; }
        static std::array<double, kStages.size()> usualLimits();
    };

    /// Is told of each stage's two ends, on the thread and inside the call that brought them about.
    class Observer {
      public:
        virtual ~Observer() = default;
        virtual void stageBegan(const ResetSequence& sequence, Stage stage) = 0;
        virtual void stageEnded(const ResetSequence& sequence, Stage stage, const Failure* failure) = 0;
    };

    static constexpr double kSettle = 1;         ///< seconds in which a device that boots off the bus has left it
    static constexpr double kResumeLimit = 6.5;  ///< seconds for the start after a cancel or a final failure

    /// @param device  where it is attached now
    /// @param unit    its unit id where that is known already; 0 for a device that reports none
    ResetSequence(USBRegistryInfo device, std::optional<std::uint32_t> unit, const Plan& plan, Observer& observer);

    /// @name What happens
    /// @{
    void begin(double now);
    void beginResume(double now);                      ///< instead of begin: only lets a held device start
    void wasLeftHeld() { mBoot = Boot::PerhapsHeld; }  ///< before its first command: an earlier run has written so
    void stationQuit(double now);
    void looked(std::span<const USBRegistryInfo> attached, double now);  ///< a look at the registry
    void tick(double now);                                               ///< time has passed
    void cancel(double now);
    void refuse(const Failure& failure);  ///< it must not be touched: the end, before the first command
    /// @}

    /// @name Opening an entry
    /// An entry that is wanted is opened by somebody, who then offers it with the unit id that it reported; from there
    /// on, step() says what is to be done over that link, until it says nothing.
    /// @{
    [[nodiscard]] bool wants(const USBRegistryInfo& entry, std::optional<std::uint32_t> unit, double now) const;
    [[nodiscard]] bool offered(const USBRegistryInfo& entry, std::uint32_t unit, double now);
    void openFailed(const USBRegistryInfo& entry, const Failure& failure, double now);

    [[nodiscard]] std::optional<Stage> step() const;
    void stepSent();  ///< the step's command is about to leave

    /// @param failure  nothing for success. The device's leaving is none where the command orders just that
    void stepEnded(const std::optional<Failure>& failure, double now);
    /// @}

    [[nodiscard]] bool isOver() const { return mStatus.has_value(); }
    [[nodiscard]] Status status() const { return mStatus.value_or(Status::Failed); }
    [[nodiscard]] const std::optional<Failure>& failure() const { return mFailure; }  ///< why it was not done
    [[nodiscard]] std::optional<std::uint32_t> unit() const { return mUnit; }
    [[nodiscard]] double stageBegan() const { return mBegan; }
    [[nodiscard]] double deadline() const { return mDeadline; }  ///< of the stage
    [[nodiscard]] int attempt() const { return mAttempt; }       ///< 1 for the first
    [[nodiscard]] Boot boot() const { return mBoot; }
    [[nodiscard]] bool cleared() const { return mClear == Clear::Done; }
    [[nodiscard]] std::string stateText() const;  ///< for people: in which state the device is

    /// When tick() has something to do, or wants() another answer, at the latest.
    [[nodiscard]] double nextDue(double now) const;

  private:
    bool isHeld() const { return mBoot == Boot::Held || mBoot == Boot::PerhapsHeld; }
    void enter(Stage stage, double now, std::optional<double> limit = {});  ///< the plan's limit unless given
    void leave(const Failure* failure = nullptr);
    void goOn(double now, std::optional<double> limit = {});  ///< to the next stage
    void stepFailed(const Failure& failure, double now);
    void giveUp(const Failure& failure, double now);
    void letStartOrFinish(double now);
    void finish(Status status);
    /// Of several reasons why a stage goes on, the one to tell at its end: no time-out where there is another.
    void keepReason(const Failure& failure);
    Failure itLeft() const;
    Failure timeUp() const;
    /// However often a device comes back still held, the wait for its return has one limit.
    std::optional<double> backLimit(double now) const;

    USBRegistryInfo mDevice;
    std::optional<std::uint32_t> mUnit;
    const Plan mPlan;
    Observer& mObserver;

    Stage mStage = Stage::Quit;
    bool mStageIsOpen = false;
    double mBegan = 0;
    double mDeadline = 0;
    double mBackLimit = 0;  ///< the deadline of BackAgain
    int mAttempt = 1;
    int mResumes = 0;
    bool mVisited = false;
    bool mSent = false;         ///< the command of the step under way
    bool mPresent = true;       ///< the device's entry, at the last look
    bool mLast = false;         ///< only one more resume is left to do
    bool mOnlyResumes = false;  ///< begun by beginResume: what was done to the settings before is not known
    bool mCancelled = false;
    Clear mClear = Clear::NotSent;
    std::optional<std::uint64_t> mClearedEntry;  ///< the attach at which all of the clear was sent
    Boot mBoot = Boot::Untouched;
    std::optional<Failure> mOpenFailure;     ///< why the device could not be opened, or looked at, in this stage
    std::optional<Failure> mEarlierFailure;  ///< of the attempt before
    std::optional<Failure> mFailure;
    std::optional<Status> mStatus;
};

}  // namespace twin
