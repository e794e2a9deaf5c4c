#include <gtest/gtest.h>

#include <ctime>

#include "DateTime.h"
#include "EncodableStream.h"

namespace {

using Value = std::pair<std::uint64_t, std::uint32_t>;  // seconds and nanoseconds

Value valueOf(const ZTCDateTime& acrTime) {
    return {acrTime.getSeconds(), acrTime.getNanoseconds()};
}

Value clockReading() {
    timespec lNow;
    clock_gettime(CLOCK_REALTIME, &lNow);
    return {lNow.tv_sec, lNow.tv_nsec};
}

constexpr char sText[] = "2026-11-21T02:46:01.5Z";
constexpr Value sValue{1795229161, 500000000};

}  // namespace

TEST(DateTimeTest, ReadsText) {
    const std::pair<const char*, Value> lTable[] = {
        {sText, sValue},
        {"2026-11-21T02:46:01Z", {1795229161, 0}},
        {"2026-11-21T02:46:01.000000001Z", {1795229161, 1}},
        {"2024-02-29T23:59:59.999999999Z", {1709251199, 999999999}},
        {"1970-01-01T00:00:00Z", {0, 0}},
        {"9999-12-31T23:59:59Z", {253402300799, 0}},
    };
    for (const auto& [lpText, lValue] : lTable) {
        ZTCDateTime lTime;
        lTime.__set(lpText);
        EXPECT_EQ(valueOf(lTime), lValue) << lpText;
    }
    ZTCDateTime lNow;
    const Value lBefore = clockReading();
    lNow.__set(".");
    EXPECT_LE(lBefore, valueOf(lNow));
    EXPECT_LE(valueOf(lNow), clockReading());
}

TEST(DateTimeTest, RefusesOtherTextAndStaysAsItWas) {
    const char* const lpTexts[] = {
        "", "..", " .", "now", "2026-11-21", "2026-11-21T02:46:01", "2026-11-21 02:46:01Z",
        "2026-11-21T02:46:01z", "2026-11-21T02:46:01Z ", "2026-11-21T02:46:01+00:00", " 2026-11-21T02:46:01Z",
        // Fractions.
        "2026-11-21T02:46:01.Z", "2026-11-21T02:46:01.0000000001Z", "2026-11-21T02:46:01,5Z",
        "2026-11-21T02:46:01.-5Z",
        // Days and times that do not exist, or not in this system's clock.
        "2025-02-29T00:00:00Z", "2026-04-31T00:00:00Z", "2026-13-01T00:00:00Z", "2026-00-01T00:00:00Z",
        "2026-11-21T24:00:00Z", "2026-12-31T23:59:60Z", "1969-12-31T23:59:59Z", "10000-01-01T00:00:00Z",
        // Fields of another width.
        "2026-1-01T00:00:00Z", "2026-01-01T0:00:00Z", "2026-11-21T02:46: 1Z", "2026-11- 1T02:46:01Z"};
    ZTCDateTime lTime;
    lTime.__set(sText);
    for (const char* const lpText : lpTexts) {
        EXPECT_THROW(lTime.__set(lpText), ZTCInvalidEx) << lpText;
        EXPECT_EQ(valueOf(lTime), sValue) << lpText;
    }
    for (const unsigned int lNanoseconds : {1000000000U, 0xffffffffU}) {
        ZTCBufferExpOutStream lOut(ZTCDateTime::EncodedSize);
        lOut << 0U << 1U << lNanoseconds;
        ZTCBufferStream lStream(lOut.getBuffer());
        ZTCEncodableInStream lIn(lStream);
        EXPECT_THROW(lTime.decode(lIn), ZTCInvalidEx);
        EXPECT_EQ(valueOf(lTime), sValue);
    }
}
