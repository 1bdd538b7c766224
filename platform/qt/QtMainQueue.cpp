#include "platform/qt/QtMainQueue.hpp"

#include "platform/common/Boundary.hpp"

#include <QObject>
#include <QPointer>
#include <QThread>
#include <QTimer>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <future>
#include <limits>
#include <mutex>
#include <utility>

namespace platform {

QtPeriod::QtPeriod(CFTimeInterval seconds) {
    constexpr double kLongestPiece = std::numeric_limits<int>::max();
    constexpr double kLongest = 1e18;        // milliseconds: longer than any machine runs
    constexpr double kRoundingError = 1e-3;  // 2.007 seconds are 2007.0000000000002 milliseconds
    const double all = std::clamp(std::ceil(seconds * 1000.0 - kRoundingError), 0.0, kLongest);
    const double count = std::max(1.0, std::ceil(all / kLongestPiece));
    pieces = static_cast<std::uint64_t>(count);
    milliseconds = static_cast<int>(std::ceil(all / count));
}

/// The way to the main thread, for as long as the queue lives.
class QtMainThread {
  public:
    /// Has the work run on the main thread. Once the queue has gone the work is destroyed, not run. Any thread.
    void post(std::function<void()> work) {
        const std::lock_guard lock(mMutex);
        if (mReceiver) QMetaObject::invokeMethod(mReceiver.get(), std::move(work), Qt::QueuedConnection);
    }

    bool isCurrent() {
        const std::lock_guard lock(mMutex);
        return mReceiver && mReceiver->thread() == QThread::currentThread();
    }

    /// What timers are children of. Main thread only, while the queue lives.
    QObject& receiver() { return *mReceiver; }

    bool isOpen() {
        const std::lock_guard lock(mMutex);
        return mReceiver != nullptr;
    }

    /// Drops what waits. Main thread only.
    void close() {
        std::unique_ptr<QObject> receiver;
        {
            const std::lock_guard lock(mMutex);
            receiver = std::move(mReceiver);
        }
    }

  private:
    std::mutex mMutex;
    std::unique_ptr<QObject> mReceiver = std::make_unique<QObject>();  ///< behind mMutex
};

namespace {

/// Shared by the caller's handle and by the timer on the main thread.
struct TimerState {
    std::atomic<bool> valid = true;
    QPointer<QTimer> timer;           ///< main thread only
    std::uint64_t piecesElapsed = 0;  ///< main thread only
};

class QtTimer final : public NSTimer {
  public:
    QtTimer(std::shared_ptr<QtMainThread> mainThread, std::shared_ptr<TimerState> state)
        : mMainThread(std::move(mainThread)), mState(std::move(state)) {}
    ~QtTimer() override { invalidate(); }
    QtTimer(const QtTimer&) = delete;
    QtTimer& operator=(const QtTimer&) = delete;

    bool isValid() const override { return mState->valid && mMainThread->isOpen(); }

    void invalidate() override {
        // The flag alone keeps the handler from running; the timer is taken off the loop where it lives.
        if (mState->valid.exchange(false)) mMainThread->post([state = mState] { delete state->timer; });
    }

  private:
    std::shared_ptr<QtMainThread> mMainThread;
    std::shared_ptr<TimerState> mState;
};

}  // namespace

QtMainQueue::QtMainQueue() : mMainThread(std::make_shared<QtMainThread>()) {}
QtMainQueue::~QtMainQueue() {
    mMainThread->close();
}

void QtMainQueue::dispatch_async(std::function<void()> block) {
    mMainThread->post([block = std::move(block)] { runGuarded(block, "QtMainQueue", __LINE__); });
}

void QtMainQueue::dispatch_sync(const std::function<void()>& block) {
    if (mMainThread->isCurrent()) return runGuarded(block, "QtMainQueue", __LINE__);
    // A block that is dropped breaks the promise, which ends the wait as well.
    auto done = std::make_shared<std::promise<void>>();
    const std::future<void> future = done->get_future();
    mMainThread->post([&block, done = std::move(done)] {
        runGuarded(block, "QtMainQueue", __LINE__);
        done->set_value();
    });
    future.wait();
}

std::shared_ptr<NSTimer> QtMainQueue::scheduledTimerWithTimeInterval(CFTimeInterval seconds, bool repeats,
                                                                     std::function<void()> handler) {
    auto state = std::make_shared<TimerState>();
    // A raw pointer: the work runs only while the receiver, and with it the queue's share, is there.
    mMainThread->post([mainThread = mMainThread.get(), state, seconds, repeats, handler = std::move(handler)] {
        if (!state->valid) return;
        auto* const timer = new QTimer(&mainThread->receiver());  // owned by the receiver
        state->timer = timer;
        timer->setTimerType(Qt::PreciseTimer);
        const QtPeriod period(seconds);
        QObject::connect(timer, &QTimer::timeout, timer, [timer, state, period, repeats, handler] {
            if (!state->valid || ++state->piecesElapsed % period.pieces != 0) return;
            if (!repeats) {
                state->valid = false;
                timer->stop();
                timer->deleteLater();
            }
            runGuarded(handler, "QtMainQueue", __LINE__);
        });
        timer->start(period.milliseconds);
    });
    return std::make_shared<QtTimer>(mMainThread, std::move(state));
}

}  // namespace platform
