// A clock that moves only when a test moves it. Local time is the file time
// read as UTC, so a test sets one instant and all three views agree.
#pragma once

#include <atomic>
#include <cstdint>
#include <thread>

#include "foundation/platform.h"

namespace qb::test {

class ManualClock : public platform::Clock {
  public:
    // 2026-03-01 09:41:07.123, a tick count far from zero.
    ManualClock();

    std::uint64_t TickCount64() override { return ticks_.load(); }
    platform::LocalTime LocalNow() override;
    std::uint64_t SystemFileTime() override { return fileTime_.load(); }
    // Sleeping on the test's own thread is advancing: a paced wait costs no
    // real time. Another thread (a paused worker) only yields, so that it
    // can't move the time the test is reading.
    void Sleep(std::uint32_t milliseconds) override;

    void Advance(std::uint64_t milliseconds) {
        ticks_ += milliseconds;
        fileTime_ += milliseconds * 10000ull;
    }
    void SetFileTime(std::uint64_t fileTime) { fileTime_ = fileTime; }
    // Moves the ticks alone, as a reading taken earlier on another thread.
    void SetTicks(std::uint64_t ticks) { ticks_ = ticks; }

  private:
    std::thread::id owner_;
    std::atomic<std::uint64_t> ticks_;
    std::atomic<std::uint64_t> fileTime_;
};

// 100 ns units since 1601-01-01 UTC for a UTC calendar time.
std::uint64_t FileTimeFromUtc(int year, int month, int day, int hour, int minute, int second,
                              int milliseconds);

inline constexpr std::uint64_t kFileTimePerMinute = 600000000ull;
inline constexpr std::uint64_t kFileTimePerDay = 1440 * kFileTimePerMinute;

// Installs a clock as the process's clock for one scope.
class ScopedClock {
  public:
    explicit ScopedClock(platform::Clock& clock) { platform::SetClockForTesting(&clock); }
    ~ScopedClock() { platform::SetClockForTesting(nullptr); }
    ScopedClock(const ScopedClock&) = delete;
    ScopedClock& operator=(const ScopedClock&) = delete;
};

}  // namespace qb::test
