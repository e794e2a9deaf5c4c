#include "TimeText.h"

#include <fmt/format.h>

#include <algorithm>
#include <ctime>

namespace {

constexpr std::uint64_t sEndOfYears = 253402300800;   // 10000-01-01T00:00:00Z
constexpr std::uint64_t sEndOfClock = 9'000'000'000;  // its 64 bits of nanoseconds end soon after, in 2262
constexpr std::uint32_t sNanosecondsInMillisecond = 1'000'000;

// "2026-11-21", the separator, "14:00:00".
std::string sDayAndTime(const std::tm& acrCalendar, char aSeparator) {
    return fmt::format("{:04}-{:02}-{:02}{}{:02}:{:02}:{:02}", acrCalendar.tm_year + 1900,
                       acrCalendar.tm_mon + 1, acrCalendar.tm_mday, aSeparator, acrCalendar.tm_hour,
                       acrCalendar.tm_min, acrCalendar.tm_sec);
}

std::tm sCalendarOf(const ZTSSensorTime& acrTime, bool aInUtc) {
    const auto lSeconds = static_cast<std::time_t>(acrTime.mSeconds);
    std::tm lCalendar{};
    if (aInUtc) {
        gmtime_r(&lSeconds, &lCalendar);
    } else {
        localtime_r(&lSeconds, &lCalendar);
    }
    return lCalendar;
}

}  // namespace

ZTSSensorTime toSensorTime(std::chrono::system_clock::time_point aTime) {
    const auto lNanoseconds = std::chrono::nanoseconds(aTime.time_since_epoch()).count();
    return {static_cast<std::uint64_t>(lNanoseconds / 1'000'000'000),
            static_cast<std::uint32_t>(lNanoseconds % 1'000'000'000)};
}

std::chrono::system_clock::time_point fromSensorTime(const ZTSSensorTime& acrTime) {
    const auto lSeconds = std::chrono::seconds(std::min(acrTime.mSeconds, sEndOfClock));
    return std::chrono::system_clock::time_point(lSeconds + std::chrono::nanoseconds(acrTime.mNanoseconds));
}

std::string isoText(const ZTSSensorTime& acrTime) {
    if (acrTime.mSeconds >= sEndOfYears) {
        return {};
    }
    return fmt::format("{}.{:09}Z", sDayAndTime(sCalendarOf(acrTime, true), 'T'), acrTime.mNanoseconds);
}

std::string plainText(const ZTSSensorTime& acrTime, bool aInUtc) {
    if (acrTime.mSeconds >= sEndOfYears) {
        return {};
    }
    const std::tm lCalendar = sCalendarOf(acrTime, aInUtc);
    return fmt::format("{}.{:03} {}", sDayAndTime(lCalendar, ' '),
                       acrTime.mNanoseconds / sNanosecondsInMillisecond, aInUtc ? "UTC" : lCalendar.tm_zone);
}

std::string plainTextBehind(const ZTSSensorTime& acrTime, const ZTSSensorTime& acrBefore, bool aInUtc) {
    const std::string lText = plainText(acrTime, aInUtc);
    const std::string lBefore = plainText(acrBefore, aInUtc);
    const std::size_t lDay = lBefore.find(' ') + 1;
    const std::size_t lZone = lText.rfind(' ');
    const bool lIsTheSame =
        lZone == lBefore.rfind(' ') && lText.substr(0, lDay) == lBefore.substr(0, lDay) &&
        lText.substr(std::min(lZone, lText.size())) == lBefore.substr(std::min(lZone, lBefore.size()));
    return lIsTheSame && !lText.empty() ? lText.substr(lDay, lZone - lDay) : lText;
}
