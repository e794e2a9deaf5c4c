#include <gtest/gtest.h>

#include <array>

#include "DateTime.h"
#include "Exception.h"
#include "Log.h"

namespace {

// The seconds and nanoseconds, high byte first: an earlier time is less.
auto bytesOf(const ZTCDateTime& acrTime) {
    std::array<unsigned char, ZTCDateTime::EncodedSize> lBytes{};
    acrTime.encode(lBytes.data());
    return lBytes;
}

}  // namespace

TEST(DateTimeTest, IsSetToNowAndToNothingElse) {
    ZTCDateTime lTime;
    const ZTCDateTime lBefore(ztlog::now());
    lTime.__set(".");
    EXPECT_LE(bytesOf(lBefore), bytesOf(lTime));
    EXPECT_LE(bytesOf(lTime), bytesOf(ZTCDateTime(ztlog::now())));
    const auto lSet = bytesOf(lTime);
    for (const char* const lpText : {"", "..", " .", "now", "2026-11-21T02:46:01Z"}) {
        EXPECT_THROW(lTime.__set(lpText), ZTCInvalidEx) << lpText;
        EXPECT_EQ(bytesOf(lTime), lSet) << lpText;
    }
}
