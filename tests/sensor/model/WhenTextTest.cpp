// Times as people write them.
#include "TestSupport.h"
#include "TimeText.h"
#include "WhenText.h"

namespace {

// Central Europe in 2026: an hour is skipped on 29 March and there twice on 25 October, each at 01:00 UTC.
ZTSZoneTime zoneOfTest(std::int64_t aSeconds) {
    const bool lIsSummer = aSeconds >= 1774746000 && aSeconds < 1792890000;
    return lIsSummer ? ZTSZoneTime{7200, "CEST"} : ZTSZoneTime{3600, "CET"};
}

// Saturday, 2026-11-21 15:30 there.
constexpr ZTNanoseconds sNow = 1'795'271'400 * ZTSecond + 250'000'000;

// Without zeros at the end.
std::string whenOf(const std::string& acrText) {
    const auto lWhen = readWhen(acrText, sNow, zoneOfTest);
    std::string lText = lWhen ? isoText(toSensorTime(*lWhen)) : "none";
    return lText.erase(lText.find_last_not_of("0:.Z") + 1);
}

TEST(WhenText, ReadsWhatSystemdReads) {
    const std::pair<const char*, const char*> lRows[] = {
        {"now", "2026-11-21T14:30:00.25"},
        {" today ", "2026-11-20T23:00:00"},
        {"yesterday", "2026-11-19T23:00:00"},
        {"tomorrow", "2026-11-21T23:00:00"},
        {"yesterday 08:00", "2026-11-20T07:00:00"},
        {"2026-11-21 08:00", "2026-11-21T07:00:00"},
        {"2026-11-21 08:00:30.75", "2026-11-21T07:00:30.75"},
        {"2026-11-21", "2026-11-20T23:00:00"},
        {"2026-07-01", "2026-06-30T22:00:00"},
        {"08:00", "2026-11-21T07:00:00"},
        {"8:00:01", "2026-11-21T07:00:01"},
        {"Sat 2026-11-21 08:00", "2026-11-21T07:00:00"},
        {"saturday, 2026-11-21", "2026-11-20T23:00:00"},
        {"Sat 08:00", "2026-11-21T07:00:00"},
        {"2026-11-21T08:00:00Z", "2026-11-21T08:00:00"},
        {"2026-11-21t08:00z", "2026-11-21T08:00:00"},
        {"2026-11-21T08:00:00.123456789999Z", "2026-11-21T08:00:00.123456789"},
        {"2026-11-21T08:00:00-05:30", "2026-11-21T13:30:00"},
        {"2026-11-21 08:00 +0100", "2026-11-21T07:00:00"},
        {"2026-11-21 08:00+14", "2026-11-20T18:00:00"},
        {"2026-11-21 08:00 UTC", "2026-11-21T08:00:00"},
        {"2026-11-21 UTC", "2026-11-21T00:00:00"},
        {"today UTC", "2026-11-21T00:00:00"},
        {"2026-11-21 14:00:00.250 CET", "2026-11-21T13:00:00.25"},
        {"2024-02-29", "2024-02-28T23:00:00"},
        {"2016-12-31T23:59:60Z", "2017-01-01T00:00:00"},
        {"@1700000000", "2023-11-14T22:13:20"},
        {"@1700000000.5", "2023-11-14T22:13:20.5"},
        {"@0", "1970-01-01T00:00:00"},
        {"-2h", "2026-11-21T12:30:00.25"},
        {"+5min", "2026-11-21T14:35:00.25"},
        {"2 hours ago", "2026-11-21T12:30:00.25"},
        {"1d 3h ago", "2026-11-20T11:30:00.25"},
        {"90 s left", "2026-11-21T14:31:30.25"},
        {"-1d 3h 20min", "2026-11-20T11:10:00.25"},
        {"-1d3h20m", "2026-11-20T11:10:00.25"},
        {"-1.5h", "2026-11-21T13:00:00.25"},
        {"-250ms", "2026-11-21T14:30:00"},
        {"-250000 us", "2026-11-21T14:30:00"},
        {"-250000\u03bcs", "2026-11-21T14:30:00"},
        {"-10", "2026-11-21T14:29:50.25"},
        {"-1w", "2026-11-14T14:30:00.25"},
        {"-1M", "2026-10-22T04:00:00.25"},
        {"-1y", "2025-11-21T08:30:00.25"},
        // There twice, and then which of the two; skipped.
        {"2026-10-25 02:30", "2026-10-25T00:30:00"},
        {"2026-10-25 02:30 CEST", "2026-10-25T00:30:00"},
        {"2026-10-25 02:30 CET", "2026-10-25T01:30:00"},
        {"2026-10-25 03:00", "2026-10-25T02:00:00"},
        {"2026-03-29 02:30", "2026-03-29T01:30:00"},
        {"2026-03-29 03:30", "2026-03-29T01:30:00"},
        {"2026-03-29 01:59:59", "2026-03-29T00:59:59"},
    };
    for (const auto& [lpText, lpWhen] : lRows) {
        std::string lExpected = lpWhen;
        EXPECT_EQ(whenOf(lpText), lExpected.erase(lExpected.find_last_not_of("0:.Z") + 1)) << lpText;
    }
}

TEST(WhenText, WhatIsNoTimeIsNone) {
    for (const char* const lpText : {"",
                                     " ",
                                     "2",
                                     "h",
                                     "noon",
                                     "-",
                                     "+",
                                     "-h",
                                     "-2x",

                                     "-2h ago",
                                     "2h",
                                     "ago",
                                     "--2h",
                                     "-2h-3h",
                                     "@",
                                     "@1.",
                                     "@-1",
                                     "@99999999999",
                                     "2026-13-01",
                                     "2026-02-29",
                                     "2026-11-31",
                                     "26-11-21",
                                     "2026-11",
                                     "2026-11-21 24:00",
                                     "2026-11-21 08:60",
                                     "2026-11-21 8",
                                     "08",
                                     "2026-11-21T",
                                     "2026-11-2108:00",
                                     "2026-11-21 08:00:61",
                                     "2026-11-21 08:00 MEZ",
                                     "2026-07-01 08:00 CET",
                                     "2026-11-21 08:00 +1",
                                     "2026-11-21 08:00 +16:00",
                                     "2026-11-21 08:00Z x",
                                     "Fri 2026-11-21",
                                     "Sat",
                                     "Sunda 2026-11-22",
                                     "now 2h",
                                     "2300-01-01",
                                     "1969-12-31 12:00",
                                     "-100y",
                                     "-99999999999999999d",
                                     "-999999999999999999999",
                                     "+9999999999999y",
                                     "2026-11-21 08:00:00.",
                                     "todayish"}) {
        EXPECT_EQ(whenOf(lpText), "none") << lpText;
    }
}

TEST(WhenText, TakesTheProcessesZone) {
    ZTCTestChild lChild([] {
        setenv("TZ", "XYZ-3:30", 1);
        tzset();
        EXPECT_EQ(zoneOfProcess(0).mOffset, 12600);
        EXPECT_EQ(zoneOfProcess(0).mName, "XYZ");
        EXPECT_EQ(readWhen("1970-01-02 03:30", 0, zoneOfProcess), 86400 * ZTSecond);
        EXPECT_EQ(readWhen("1970-01-02", 0, zoneOfUtc), 86400 * ZTSecond);
    });
    EXPECT_EQ(lChild.waitForEnd(), 0);
}

}  // namespace
