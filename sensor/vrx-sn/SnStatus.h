// The line that `systemctl status` shows.
#pragma once

#include <atomic>
#include <chrono>
#include <ctime>
#include <string>

class ZTCSnFigures;

/// "12,345 events today, 3 ports, last fetch 0.4 s ago", and what is amiss. Any thread for takeToday(), one
/// for the rest.
class ZTCSnStatus {
  public:
    using Clock = std::chrono::system_clock;

    explicit ZTCSnStatus(const ZTCSnFigures& acrFigures) : mrFigures(acrFigures) {}

    /// Events of this day that the store had before anything was fetched.
    void takeToday(std::uint64_t aEvents) { mBefore = static_cast<std::int64_t>(aEvents); }
    /// acrTrouble: the store's; empty: none.
    std::string getText(Clock::time_point aNow, const std::string& acrTrouble);

    /// When the local day of a moment began, in seconds since 1970.
    static std::time_t beginOfDay(Clock::time_point aNow);

  private:
    std::string getHostTrouble() const;

    const ZTCSnFigures& mrFigures;
    std::time_t mDay = 0;
    std::atomic<std::int64_t> mBefore{0};  ///< what is to be added to what was taken, to be today's
};
