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

TEST(Record, MayGrowWhileItStaysBelowTheCeiling) {
    const struct {
        unsigned int mCeiling, mLength, mCount;
        bool mMay;
    } lTable[] = {// No ceiling set, or nearly none.
                  {0, 0, 0, false},
                  {0, 20, 8, false},
                  {1, 0, 0, true},
                  // A usual one; the last sum has more than 32 bits.
                  {100, 92, 7, true},
                  {100, 92, 8, false},
                  {100, 92, 0xffffffff, false},
                  // The highest one.
                  {0xffffffff, 100, 8, true},
                  {0xffffffff, 100, 0xffffff9a, true},
                  {0xffffffff, 100, 0xffffff9b, false}};
    const unsigned char lBytes[100]{};
    for (const auto& [lCeiling, lLength, lCount, lMay] : lTable) {
        unsigned char lRoom[200];
        const ZTCScopeAgentRecord lRecord({}, 0, ZTCScopeData({1, 2}, lBytes, lLength), 0, lRoom);
        EXPECT_EQ(lRecord.mayGrowBy(lCount, lCeiling), lMay) << lCeiling << ", " << lLength << ", " << lCount;
    }
}

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
