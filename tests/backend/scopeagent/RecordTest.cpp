// What a record keeps to by itself; the rest is the collection's.
#include "AgentClient.h"
#include "ScopeAgentRecord.h"

namespace {

std::string textOf(const unsigned char* apBytes, std::size_t aCount) {
    return {apBytes, apBytes + aCount};
}

std::string encoded(std::uint64_t aTime) {
    unsigned char lBytes[ZTCDateTime::EncodedSize];
    ZTCDateTime(aTime).encode(lBytes);
    return textOf(lBytes, sizeof lBytes);
}

}  // namespace

TEST(Record, TheLastTimeFollowsAClockThatIsSetBackButNotThreadsOutOfOrder) {
    constexpr std::uint64_t lSecond = 1000000000;
    constexpr std::uint64_t lAtFirst = 1000 * lSecond;
    const std::pair<std::uint64_t, std::uint64_t> lRows[] = {
        // the time of a repeat, the last time that it makes
        {lAtFirst, lAtFirst},
        {lAtFirst - lSecond + 1, lAtFirst},
        {lAtFirst - lSecond, lAtFirst - lSecond},
        {lAtFirst + lSecond, lAtFirst + lSecond},
        {lAtFirst - 900 * lSecond, lAtFirst - 900 * lSecond},
    };
    for (const auto& [lTime, lLast] : lRows) {
        const unsigned char lBlock[4]{1};
        unsigned char lRoom[ZTCScopeAgentRecord::HeadSize + 11];
        ZTCScopeAgentRecord lRecord({}, 0, ZTCScopeData({2, 1}, lBlock, sizeof lBlock), lAtFirst, lRoom);
        lRecord.incrementOccurrences({}, lTime);
        lRecord.complete();
        EXPECT_EQ(textOf(lRoom, 4), wordOf(2));
        EXPECT_EQ(textOf(lRoom + 4, 12), encoded(lAtFirst));
        EXPECT_EQ(textOf(lRoom + 16, 12), encoded(lLast));
    }
}
