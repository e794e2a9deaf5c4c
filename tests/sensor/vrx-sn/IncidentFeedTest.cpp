#include "IncidentFeed.h"
#include "SnBuffer.h"
#include "TestSupport.h"

namespace {

using Clock = ZTCIncidentFeed::Clock;
using namespace std::chrono_literals;

ZTSensorScopeData answerOf(std::uint8_t aSubcategory, std::uint64_t aSecond, std::uint32_t aEvents,
                           std::uint8_t aPort = 1) {
    ZTSSensorRecordList lList;
    lList.mInitiator.mPort.mBytes[7] = aPort;
    lList.mRecords.push_back({aEvents, {aSecond, 0}, {aSecond, 5}, 4, aSubcategory, {}, {}});
    return {lList};
}

struct Fed {
    explicit Fed(std::size_t aLimit = std::size_t{8} << 20) : mFeed(aLimit) {}

    ZTCIncidentFeed mFeed;
    ZTCSnBuffer mBuffer{{.mFold = {}, .mpFeed = &mFeed}};

    void take(const ZTSensorScopeData& acrData) { mBuffer.takeRecords(acrData, {}, {}, Clock::now()); }
};

TEST(IncidentFeed, GivesWhatWasAddedOnce) {
    Fed lFed;
    lFed.take(answerOf(1, 100, 5));
    lFed.take(answerOf(1, 101, 3));
    lFed.take(answerOf(2, 101, 1));
    ZTSIncidentInput lInput = lFed.mFeed.detach();
    ASSERT_EQ(lInput.mRows.size(), 2U);
    EXPECT_EQ(lInput.mRows[0].mRecord.mOccurrences, 8U);
    EXPECT_EQ(lInput.mRows[0].mRecord.mFirst, 100 * ZTSecond);
    // In the history it is still the same row.
    lFed.take(answerOf(1, 102, 2));
    lFed.mBuffer.takeChange({7, "port", "p", "changed", "state", "Online", "Linkdown"});
    lFed.mBuffer.takeRun({}, {{1, 2, "agent", "limit", 3, {}}});
    lFed.mBuffer.takeLabels({{{}, {"name", "", "", "", ""}}});
    ZTSHostNews lNews;
    lNews.mStalls.push_back({1, 2, false, "sdb", "sdb", "", 1, "disk"});
    lFed.mBuffer.takeHost(lNews);
    lInput = lFed.mFeed.detach();
    ASSERT_EQ(lInput.mRows.size(), 1U);
    EXPECT_EQ(lInput.mRows[0].mRecord.mOccurrences, 2U);
    EXPECT_EQ(lInput.mRows[0].mRecord.mFirst, 102 * ZTSecond);
    EXPECT_EQ(lInput.mChanges.size() + lInput.mLosses.size() + lInput.mHost.mStalls.size(), 3U);
    EXPECT_TRUE(lInput.mLabels);
    EXPECT_EQ(lInput.mLost, 0U);
    EXPECT_TRUE(lFed.mFeed.detach().isEmpty());
    EXPECT_EQ(lFed.mBuffer.detach(1).mRows.at(0).mRecord.mOccurrences, 10U);
}

// Whoever looks at it may have no time for long.
TEST(IncidentFeed, WhatFindsNoRoomIsCounted) {
    Fed lFed(std::size_t{256} << 10);
    constexpr unsigned int lCount = 20000;
    for (unsigned int lNumber = 0; lNumber < lCount; ++lNumber) {
        ZTSensorScopeData lData = answerOf(1, 1000 + 100 * lNumber, 1);
        lFed.take(lData);
        lFed.mBuffer.takeChange({7, "port", std::string(100, 'p'), "changed", "", "", ""});
    }
    const ZTSIncidentInput lInput = lFed.mFeed.detach();
    EXPECT_LT(lInput.mRows.size(), lCount / 10);
    EXPECT_EQ(lInput.mRows.size() + lInput.mChanges.size() + lInput.mLost, 2 * lCount);
    EXPECT_EQ(lFed.mFeed.detach().mLost, 0U);
    lFed.take(answerOf(1, 1, 1));
    EXPECT_EQ(lFed.mFeed.detach().mRows.size(), 1U);
}

TEST(IncidentFeed, AWaitEndsWhenSomethingComesButNotTooSoon) {
    Fed lFed;
    std::atomic<unsigned int> lEnded{0};
    const auto lWait = [&](Clock::time_point aNotBefore) {
        return std::thread([&lFed, &lEnded, aNotBefore] {
            lFed.mFeed.wait(aNotBefore, Clock::now() + 1h);
            ++lEnded;
        });
    };
    std::thread lThread = lWait(Clock::now());
    lFed.take(answerOf(1, 1, 1));
    lThread.join();
    lThread = lWait(Clock::now() + 1h);  // what has come waits as well
    EXPECT_EQ(lEnded, 1U);
    lFed.mFeed.wake();
    lThread.join();
    const auto lBegan = Clock::now();
    lFed.mFeed.wait(lBegan + 30ms, lBegan + 1h);
    EXPECT_GE(Clock::now(), lBegan + 30ms);
}

TEST(SnBufferOfIncidents, TheNewestWaitsAndWhatFindsNoRoomIsTold) {
    ZTCSnBuffer lBuffer({.mFold = {}, .mLimit = std::size_t{1} << 20});
    ZTSIncidentNews lNews;
    lNews.mTo = 5;
    lBuffer.takeIncidents(lNews);
    EXPECT_FALSE(lBuffer.waitForWork(0ms));  // nothing but that: it waits for something
    lNews.mIncidents.resize(1);
    for (std::uint64_t lRound = 1; lRound <= 1000; ++lRound) {
        lNews.mIncidents[0].mId = 1;
        lNews.mIncidents[0].mEvents = lRound;
        lNews.mIncidents[0].mMemory.assign(1000, 'm');
        lNews.mTo = 5 + static_cast<ZTNanoseconds>(lRound);
        lBuffer.takeIncidents(lNews);
    }
    ZTSStoreBatch lBatch = lBuffer.detach(1);
    ASSERT_EQ(lBatch.mIncidents.mIncidents.size(), 1U);
    EXPECT_EQ(lBatch.mIncidents.mIncidents[0].mEvents, 1000U);
    EXPECT_EQ(lBatch.mIncidents.mTo, 1005);
    lBuffer.stored();
    for (std::uint64_t lId = 1; lId <= 1000; ++lId) {
        lNews.mIncidents[0].mId = lId;
        lBuffer.takeIncidents(lNews);
    }
    EXPECT_LT(lBuffer.getBytes(), std::size_t{1} << 18);
    lBatch = lBuffer.detach(1);
    ASSERT_EQ(lBatch.mChanges.size(), 1U);
    EXPECT_EQ(lBatch.mChanges[0].mAttribute, "lost_incidents");
    EXPECT_EQ(std::stoul(lBatch.mChanges[0].mAfter) + lBatch.mIncidents.mIncidents.size(), 1000U);
}

}  // namespace
