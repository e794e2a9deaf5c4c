#include "WhenText.h"

#include <strings.h>

#include <chrono>
#include <ctime>
#include <iterator>

namespace {

using Days = std::chrono::sys_days;

constexpr std::int64_t sDay = 86400;
constexpr ZTNanoseconds sMicrosecond = 1000;
constexpr std::size_t sFractionDigits = 9;

struct Unit {
    std::string_view mName;
    ZTNanoseconds mLength;
};
constexpr ZTNanoseconds sMonth = 2'629'800 * ZTSecond;  // a twelfth of a year
constexpr ZTNanoseconds sYear = 31'557'600 * ZTSecond;  // 365.25 days
constexpr Unit sUnits[] = {{"", ZTSecond},
                           {"ns", 1},
                           {"nsec", 1},
                           {"us", sMicrosecond},
                           {"usec", sMicrosecond},
                           {"\u00b5s", sMicrosecond},
                           {"\u03bcs", sMicrosecond},
                           {"ms", 1000 * sMicrosecond},
                           {"msec", 1000 * sMicrosecond},
                           {"s", ZTSecond},
                           {"sec", ZTSecond},
                           {"second", ZTSecond},
                           {"seconds", ZTSecond},
                           {"m", 60 * ZTSecond},
                           {"min", 60 * ZTSecond},
                           {"minute", 60 * ZTSecond},
                           {"minutes", 60 * ZTSecond},
                           {"h", 3600 * ZTSecond},
                           {"hr", 3600 * ZTSecond},
                           {"hour", 3600 * ZTSecond},
                           {"hours", 3600 * ZTSecond},
                           {"d", sDay* ZTSecond},
                           {"day", sDay* ZTSecond},
                           {"days", sDay* ZTSecond},
                           {"w", 7 * sDay* ZTSecond},
                           {"week", 7 * sDay* ZTSecond},
                           {"weeks", 7 * sDay* ZTSecond},
                           {"M", sMonth},
                           {"month", sMonth},
                           {"months", sMonth},
                           {"y", sYear},
                           {"year", sYear},
                           {"years", sYear}};

// In the order of std::chrono::weekday.
constexpr std::string_view sWeekdays[] = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                          "Thursday", "Friday", "Saturday"};

struct DayWord {
    std::string_view mName;
    int mFromToday;
};
constexpr DayWord sDayWords[] = {{"today", 0}, {"yesterday", -1}, {"tomorrow", 1}};

// aTimes * aLength + aSum, or nothing if that is no number of nanoseconds.
std::optional<ZTNanoseconds> sScaled(std::int64_t aTimes, ZTNanoseconds aLength, ZTNanoseconds aSum) {
    ZTNanoseconds lProduct = 0;
    ZTNanoseconds lSum = 0;
    const bool lIsTooMuch =
        __builtin_mul_overflow(aTimes, aLength, &lProduct) || __builtin_add_overflow(lProduct, aSum, &lSum);
    return lIsTooMuch ? std::nullopt : std::optional(lSum);
}

bool sIsDigit(char aSign) {
    return aSign >= '0' && aSign <= '9';
}
bool sIsBlank(char aSign) {
    return aSign == ' ' || aSign == '\t';
}

// What is left of the text. Each take takes something whole or nothing.
class Reader {
  public:
    explicit Reader(std::string_view aText) : mLeft(aText) { skipBlanks(); }

    bool isAtEnd() const { return mLeft.empty(); }
    bool skipBlanks() {
        const std::size_t lBefore = mLeft.size();
        while (!mLeft.empty() && sIsBlank(mLeft[0])) {
            mLeft.remove_prefix(1);
        }
        return mLeft.size() < lBefore;
    }
    bool take(std::string_view aText) {
        const bool lIsIt = mLeft.starts_with(aText);
        mLeft.remove_prefix(lIsIt ? aText.size() : 0);
        return lIsIt;
    }
    // What is neither a digit nor a blank nor one of the signs of numbers.
    std::string_view peekWord() const {
        std::size_t lLength = 0;
        while (lLength < mLeft.size() && !sIsDigit(mLeft[lLength]) && !sIsBlank(mLeft[lLength]) &&
               std::string_view("+-:.").find(mLeft[lLength]) == std::string_view::npos) {
            ++lLength;
        }
        return mLeft.substr(0, lLength);
    }
    void drop(std::size_t aLength) { mLeft.remove_prefix(aLength); }
    // A number of aFewest to aMost digits, and no more of them behind it.
    std::optional<std::int64_t> takeNumber(std::size_t aFewest, std::size_t aMost) {
        std::size_t lLength = 0;
        std::int64_t lNumber = 0;
        while (lLength < mLeft.size() && sIsDigit(mLeft[lLength]) && lLength <= aMost) {
            lNumber = 10 * lNumber + (mLeft[lLength++] - '0');
        }
        if (lLength < aFewest || lLength > aMost) {
            return {};
        }
        drop(lLength);
        return lNumber;
    }
    // Behind a point, in billionths; 0 if there is no point. Further digits mean too little to be kept.
    std::optional<std::int64_t> takeFraction() {
        if (!take(".")) {
            return 0;
        }
        std::int64_t lFraction = 0;
        std::size_t lLength = 0;
        for (; lLength < mLeft.size() && sIsDigit(mLeft[lLength]); ++lLength) {
            lFraction = lLength < sFractionDigits ? 10 * lFraction + (mLeft[lLength] - '0') : lFraction;
        }
        for (std::size_t lAt = lLength; lAt < sFractionDigits; ++lAt) {
            lFraction *= 10;
        }
        drop(lLength);
        return lLength != 0 ? std::optional(lFraction) : std::nullopt;
    }

  private:
    std::string_view mLeft;
};

const Unit* sFindUnit(std::string_view aName) {
    for (const Unit& lrUnit : sUnits) {
        if (lrUnit.mName == aName) {
            return &lrUnit;
        }
    }
    return nullptr;
}

// "1d 3h 20min", "1.5h": up to the end, or to a word behind a blank.
std::optional<ZTNanoseconds> sTakeSpan(Reader& arText) {
    constexpr std::size_t lMostDigits = 17;
    ZTNanoseconds lSum = 0;
    do {
        const auto lNumber = arText.takeNumber(1, lMostDigits);
        const auto lFraction = arText.takeFraction();
        if (!lNumber || !lFraction) {
            return {};
        }
        arText.skipBlanks();
        const std::string_view lWord = arText.peekWord();
        const bool lIsOver = lWord == "ago" || lWord == "left";
        const Unit* const lpUnit = lIsOver ? &sUnits[0] : sFindUnit(lWord);
        if (lpUnit == nullptr) {
            return {};
        }
        arText.drop(lIsOver ? 0 : lWord.size());
        // A billionth of a year is 31 ms: what is lost here is below a microsecond in the units that matter.
        const ZTNanoseconds lPart = static_cast<ZTNanoseconds>(
            static_cast<long double>(*lFraction) / ZTSecond * static_cast<long double>(lpUnit->mLength));
        const auto lWhole = sScaled(*lNumber, lpUnit->mLength, lSum);
        if (!lWhole || __builtin_add_overflow(*lWhole, lPart, &lSum)) {
            return {};
        }
        arText.skipBlanks();
    } while (!arText.isAtEnd() && arText.peekWord().empty());
    return lSum;
}

// "-2h", "+5min", "2 hours ago", "3min left".
std::optional<ZTNanoseconds> sReadFromNow(Reader aText, ZTNanoseconds aNow) {
    const bool lIsBefore = aText.take("-");
    const bool lIsSigned = lIsBefore || aText.take("+");
    const auto lSpan = sTakeSpan(aText);
    const bool lIsAgo = !lIsSigned && aText.take("ago");
    if (!lSpan || !(lIsSigned || lIsAgo || aText.take("left"))) {
        return {};
    }
    aText.skipBlanks();
    return aText.isAtEnd() ? sScaled(lIsBefore || lIsAgo ? -1 : 1, *lSpan, aNow) : std::nullopt;
}

std::optional<ZTNanoseconds> sReadSecondsSince1970(Reader aText) {
    constexpr std::size_t lMostDigits = 10;
    const auto lSeconds = aText.takeNumber(1, lMostDigits);
    const auto lFraction = aText.takeFraction();
    return lSeconds && lFraction && aText.isAtEnd() ? sScaled(*lSeconds, ZTSecond, *lFraction) : std::nullopt;
}

// A name in whatever case, whole or its first three letters.
std::optional<std::chrono::weekday> sTakeWeekday(Reader& arText) {
    const std::string_view lWord = arText.peekWord().substr(0, arText.peekWord().find(','));
    for (std::size_t lAt = 0; lAt < std::size(sWeekdays); ++lAt) {
        const std::string_view lName = sWeekdays[lAt];
        if ((lWord.size() == 3 || lWord.size() == lName.size()) &&
            strncasecmp(lWord.data(), lName.data(), lWord.size()) == 0) {
            arText.drop(lWord.size());
            arText.take(",");
            return std::chrono::weekday(static_cast<unsigned int>(lAt));
        }
    }
    return {};
}

// "2026-11-21".
std::optional<Days> sTakeDate(Reader& arText) {
    Reader lText = arText;
    const auto lYear = lText.takeNumber(4, 4);
    const auto lMonth = lYear && lText.take("-") ? lText.takeNumber(1, 2) : std::nullopt;
    const auto lDay = lMonth && lText.take("-") ? lText.takeNumber(1, 2) : std::nullopt;
    if (!lDay) {
        return {};
    }
    const std::chrono::year_month_day lDate(std::chrono::year(static_cast<int>(*lYear)),
                                            std::chrono::month(static_cast<unsigned int>(*lMonth)),
                                            std::chrono::day(static_cast<unsigned int>(*lDay)));
    arText = lText;
    return lDate.ok() ? std::optional(Days(lDate)) : std::nullopt;
}

// "08:00", "08:00:00", "08:00:00.5", in nanoseconds since midnight.
std::optional<ZTNanoseconds> sTakeTime(Reader& arText) {
    Reader lText = arText;
    const auto lHour = lText.takeNumber(1, 2);
    const auto lMinute = lHour && lText.take(":") ? lText.takeNumber(2, 2) : std::nullopt;
    if (!lMinute) {
        return {};
    }
    const bool lHasSecond = lText.take(":");
    const auto lSecond = lHasSecond ? lText.takeNumber(2, 2) : std::optional<std::int64_t>(0);
    const auto lFraction = lHasSecond ? lText.takeFraction() : std::optional<std::int64_t>(0);
    // A second 60 is one that was put in: the clocks of this system count it as the next one.
    if (!lSecond || !lFraction || *lHour > 23 || *lMinute > 59 || *lSecond > 60) {
        return {};
    }
    arText = lText;
    return (*lHour * 3600 + *lMinute * 60 + *lSecond) * ZTSecond + *lFraction;
}

// "+01:00", "-0530", "+01", in seconds.
std::optional<std::int64_t> sTakeOffset(Reader& arText) {
    const bool lIsBehind = arText.take("-");
    if (!lIsBehind && !arText.take("+")) {
        return {};
    }
    constexpr std::int64_t lMostHours = 15;
    auto lHours = arText.takeNumber(2, 2);
    std::optional<std::int64_t> lMinutes = 0;
    if (!lHours) {
        const auto lBoth = arText.takeNumber(4, 4);
        lHours = lBoth ? std::optional(*lBoth / 100) : std::nullopt;
        lMinutes = lBoth ? std::optional(*lBoth % 100) : std::nullopt;
    } else if (arText.take(":")) {
        lMinutes = arText.takeNumber(2, 2);
    }
    if (!lHours || !lMinutes || *lHours > lMostHours || *lMinutes > 59) {
        return {};
    }
    return (lIsBehind ? -1 : 1) * (*lHours * 3600 + *lMinutes * 60);
}

// The moment at which the zone's clocks show so many seconds since 1970. aName: which of two, if it is there
// twice; a moment of another name is none.
std::optional<std::int64_t> sFromZone(std::int64_t aShown, const ZTZone& acrZone, std::string_view aName) {
    // No zone's clocks are set twice within two days.
    const std::int64_t lBefore = aShown - acrZone(aShown - sDay).mOffset;
    const std::int64_t lBehind = aShown - acrZone(aShown + sDay).mOffset;
    const auto lIsShownAt = [&](std::int64_t aMoment) {
        const ZTSZoneTime lZone = acrZone(aMoment);
        return aMoment + lZone.mOffset == aShown && (aName.empty() || lZone.mName == aName);
    };
    if (lIsShownAt(lBefore)) {
        return lBefore;
    }
    if (lIsShownAt(lBehind)) {
        return lBehind;
    }
    return aName.empty() ? std::optional(lBefore) : std::nullopt;
}

std::int64_t sFloorOfSeconds(ZTNanoseconds aTime) {
    return aTime / ZTSecond - (aTime % ZTSecond < 0 ? 1 : 0);
}

Days sTodayIn(const ZTZone& acrZone, ZTNanoseconds aNow) {
    const std::int64_t lNow = sFloorOfSeconds(aNow);
    return std::chrono::floor<std::chrono::days>(
        std::chrono::sys_seconds(std::chrono::seconds(lNow + acrZone(lNow).mOffset)));
}

// What stands behind a day and a time: how far the clocks that are meant are ahead of UTC, or the zone's
// name.
struct Zone {
    std::optional<std::int64_t> mOffset;
    std::string_view mName;
};
std::optional<Zone> sTakeZone(Reader& arText) {
    arText.skipBlanks();
    if (arText.isAtEnd()) {
        return Zone{};
    }
    const std::string_view lWord = arText.peekWord();
    if (lWord.empty()) {
        const auto lOffset = sTakeOffset(arText);
        return lOffset ? std::optional(Zone{lOffset, {}}) : std::nullopt;
    }
    arText.drop(lWord.size());
    return lWord == "Z" || lWord == "z" || lWord == "UTC" ? Zone{0, {}} : Zone{{}, lWord};
}

// A weekday, a day, a time, a zone: each may be left out, but not both day and time.
std::optional<ZTNanoseconds> sReadDate(Reader aText, ZTNanoseconds aNow, const ZTZone& acrZone) {
    const auto lWeekday = sTakeWeekday(aText);
    aText.skipBlanks();
    std::optional<Days> lDay = sTakeDate(aText);
    std::optional<int> lFromToday;
    for (const DayWord& lrWord : sDayWords) {
        if (!lDay && !lFromToday && aText.peekWord() == lrWord.mName) {
            aText.drop(lrWord.mName.size());
            lFromToday = lrWord.mFromToday;
        }
    }
    const bool lHasDay = lDay || lFromToday;
    const bool lNeedsTime = !lHasDay || (lDay && (aText.take("T") || aText.take("t")));
    const bool lMayHaveTime = lNeedsTime || aText.skipBlanks();
    const std::optional<ZTNanoseconds> lTime =
        lMayHaveTime ? sTakeTime(aText) : std::optional<ZTNanoseconds>();
    const auto lZone = lTime || !lNeedsTime ? sTakeZone(aText) : std::nullopt;
    aText.skipBlanks();
    if (!lZone || !aText.isAtEnd()) {
        return {};
    }
    const ZTZone lOffset = [&](std::int64_t) { return ZTSZoneTime{*lZone->mOffset, ""}; };
    const ZTZone& lrZone = lZone->mOffset ? lOffset : acrZone;
    if (!lDay) {
        lDay = sTodayIn(lrZone, aNow) + std::chrono::days(lFromToday.value_or(0));
    }
    if (lWeekday && *lWeekday != std::chrono::weekday(*lDay)) {
        return {};
    }
    const ZTNanoseconds lInDay = lTime.value_or(0);
    const std::int64_t lShown = lDay->time_since_epoch().count() * sDay + lInDay / ZTSecond;
    const auto lSeconds = sFromZone(lShown, lrZone, lZone->mName);
    return lSeconds ? sScaled(*lSeconds, ZTSecond, lInDay % ZTSecond) : std::nullopt;
}

}  // namespace

ZTSZoneTime zoneOfUtc(std::int64_t /*aSeconds*/) {
    return {0, "UTC"};
}

ZTSZoneTime zoneOfProcess(std::int64_t aSeconds) {
    const std::time_t lSeconds = aSeconds;
    std::tm lCalendar{};
    if (localtime_r(&lSeconds, &lCalendar) == nullptr) {
        return zoneOfUtc(aSeconds);
    }
    return {lCalendar.tm_gmtoff, lCalendar.tm_zone};
}

std::optional<ZTNanoseconds> readWhen(std::string_view aText, ZTNanoseconds aNow, const ZTZone& acrZone) {
    Reader lText(aText.substr(0, aText.find_last_not_of(" \t") + 1));
    std::optional<ZTNanoseconds> lWhen;
    if (Reader lNow = lText; lNow.take("now") && lNow.isAtEnd()) {
        lWhen = aNow;
    } else if (Reader lSeconds = lText; lSeconds.take("@")) {
        lWhen = sReadSecondsSince1970(lSeconds);
    } else {
        lWhen = sReadDate(lText, aNow, acrZone);
        lWhen = lWhen ? lWhen : sReadFromNow(lText, aNow);
    }
    return lWhen && *lWhen >= 0 ? lWhen : std::nullopt;
}
