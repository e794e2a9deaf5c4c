// Ends a wait, whoever waits and wherever it comes from.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>

/// Ended once, it stays so: a wait that begins behind that does not wait. Any thread.
class ZTCWaitEnd {
  public:
    using Clock = std::chrono::steady_clock;

    /// Also from a signal's handler.
    void end() noexcept;
    bool hasEnded() const noexcept { return mEnded.load() != 0; }

    /// Waits for the end, or the time. False: a signal has come.
    bool waitUntil(Clock::time_point aTime) const;
    /// The same, and until somebody has changed the word, which may be another process's, from the value that
    /// was seen, and has woken who waits there. Where the kernel, older than 5.16, or a filter does not let
    /// one wait for two things the end does not interrupt the wait: then aTime is to be near.
    bool waitUntil(Clock::time_point aTime, const void* apWord, std::uint32_t aSeen) const;

  private:
    std::atomic<std::uint32_t> mEnded{0};
};
