#pragma once

#include <cstdint>

namespace win {

/// Stopwatch on the platform's absolute clock. One thread at a time.
class Timer_t {
  public:
    Timer_t();  ///< runs from now

    void Start();                                  ///< runs from now, anew
    void Stop();                                   ///< stands still; a stopped one stays where it is
    void Continue();                               ///< runs on from where it stopped; nothing when it runs
    bool IsRunning() const { return mIsRunning; }  ///< @plain

    /// Milliseconds, the rest cut off.
    std::uint64_t ElapsedTime() const;

  private:
    double mStartTime;  ///< seconds on the absolute clock
    double mStopTime = 0;
    bool mIsRunning = true;
};

}  // namespace win
