// What is taken comes out again, in batches that agree with themselves, whatever the store does.
#include "FailingAllocator.h"
#include "RandomRecords.h"
#include "SnBuffer.h"
#include "TestSupport.h"

namespace {

using Clock = ZTCSnBuffer::Clock;
using std::chrono::milliseconds;

constexpr milliseconds sNoTime{0};

ZTSHostPorts hostPorts() {
    ZTSHostPorts lPorts;
    lPorts.mLocal.push_back({{{}, {{80, 6, 1, 96, 0, 0, 0, 0}}}, "host3", "", "", "", {}, "fabric a"});
    lPorts.mRemote.push_back({{}, {{}, {{99}}}, "", "", 0x010300, "fabric a"});
    return lPorts;
}

// A store as it is to be: it sees whether each batch goes on where the last one ended.
class Store {
  public:
    void write(const ZTSStoreBatch& acrBatch) {
        for (const ZTSStoreRow& lrRow : acrBatch.mRows) {
            ASSERT_GT(lrRow.mId, mClosedTo);
            ASSERT_EQ(lrRow.mIsNew, lrRow.mId == mRows.size() + 1);
            if (lrRow.mIsNew) {
                mRows.push_back({lrRow.mRecord.mSeries, lrRow.mRecord.mFirst, 0, 0, {}});
            }
            ZTSRecord& lrStored = mRows.at(lrRow.mId - 1);
            ASSERT_EQ(lrStored.mSeries, lrRow.mRecord.mSeries);
            ASSERT_EQ(lrStored.mFirst, lrRow.mRecord.mFirst);
            ASSERT_LE(lrStored.mLast, lrRow.mRecord.mLast);
            ASSERT_EQ(lrStored.mOccurrences + lrRow.mAdded, lrRow.mRecord.mOccurrences);
            lrStored = lrRow.mRecord;
            mEvents += lrRow.mAdded;
        }
        for (const ZTSLoss& lrLoss : acrBatch.mLosses) {
            ASSERT_EQ(lrLoss.mSource + lrLoss.mReason, "sensorbuffer");
            ASSERT_LE(lrLoss.mFirst, lrLoss.mLast);
            mLost += *lrLoss.mEvents;
        }
        for (const ZTSAgentRun& lrRun : acrBatch.mAgents) {
            mTaken[lrRun.mStart] = lrRun.mTaken;
        }
        if (acrBatch.mClosedTo != 0) {
            ASSERT_GT(acrBatch.mClosedTo, mClosedTo);
            ASSERT_LE(acrBatch.mClosedTo, mRows.size());
            mClosedTo = acrBatch.mClosedTo;
        }
        mBatches += 1;
        // A kill in this moment: what the runs are said to have taken is what is there.
        std::uint64_t lTaken = 0;
        for (const auto& [lStart, lOfRun] : mTaken) {
            lTaken += lOfRun;
        }
        ASSERT_EQ(mEvents + mLost, lTaken);
    }
    // Whether there was something.
    bool takeFrom(ZTCSnBuffer& arBuffer) {
        if (!arBuffer.waitForWork(sNoTime)) {
            return false;
        }
        write(arBuffer.detach(mRows.size() + 1));
        arBuffer.stored();
        return true;
    }

    std::vector<ZTSRecord> mRows;
    std::uint64_t mClosedTo = 0;
    std::uint64_t mEvents = 0;
    std::uint64_t mLost = 0;
    std::map<ZTNanoseconds, std::uint64_t> mTaken;
    unsigned int mBatches = 0;
};

// An agent whose answers are taken; now and then another one.
struct Agent {
    explicit Agent(unsigned int aSeed) : mRandom(aSeed) {}

    ZTSensorScopeData answer(unsigned int aRecords) {
        if (mRandom.isOnceIn(20)) {
            ++mRun.mStart;
            mRun.mTaken = 0;
        }
        ZTSensorScopeData lData(1);
        lData[0].mInitiator = mRandom.makeInitiator();
        for (unsigned int lRecord = 0; lRecord < aRecords; ++lRecord) {
            lData[0].mRecords.push_back(mRandom.make());
            mRun.mTaken += lData[0].mRecords.back().mOccurrences;
        }
        return lData;
    }

    ZTCRandomRecords mRandom;
    ZTSAgentRun mRun;
};

TEST(SnBuffer, WhatIsTakenIsStoredOrToldAsLostWhateverFails) {
    std::uint64_t lLost = 0;
    for (unsigned int lSeed = 0; lSeed < ZTTestRounds(12U, 600U); ++lSeed) {
        const std::size_t lLimit = lSeed % 3 == 0 ? 20000 : std::size_t{1} << 20;
        Agent lAgent(lSeed);
        ZTCRandomRecords& lrRandom = lAgent.mRandom;
        ZTCSnBuffer lBuffer({{std::chrono::seconds(10), 200}, lLimit});
        Store lStore;
        const ZTSHostPorts lPorts = hostPorts();
        std::optional<ZTSStoreBatch> lWaiting;  // in a store that stands still
        Clock::time_point lNow{};
        std::uint64_t lEvents = 0;
        const auto lDetach = [&] {
            try {
                const FailingAllocator lFails(lrRandom.below(40));
                lWaiting = lBuffer.detach(lStore.mRows.size() + 1);
            } catch (const std::bad_alloc&) {
                // As if it had not been tried.
            }
        };
        const auto lWrite = [&] {
            lStore.write(*lWaiting);
            lWaiting.reset();
            lBuffer.stored();
        };
        for (unsigned int lStep = 0; lStep < 300 && !HasFailure(); ++lStep) {
            const std::uint64_t lBefore = lAgent.mRun.mTaken;
            const ZTNanoseconds lStart = lAgent.mRun.mStart;
            const ZTSensorScopeData lData = lAgent.answer(lrRandom.below(30));
            lEvents += lAgent.mRun.mTaken - (lAgent.mRun.mStart == lStart ? lBefore : 0);
            ZTSAgentRun lRun = lAgent.mRun;
            {
                const FailingAllocator lFails(lrRandom.below(3) * lrRandom.below(100));
                lBuffer.takeRecords(lData, lPorts, std::move(lRun),
                                    lNow += milliseconds(lrRandom.below(500)));
            }
            // Only where the records of two runs waited, a batch may be as large as all.
            EXPECT_LE(lBuffer.getBytes(), lLimit / 10 * (lWaiting && lWaiting->mAgents.size() > 1 ? 21 : 11));
            if (!lWaiting && !lrRandom.isOnceIn(3)) {
                lDetach();
            } else if (lWaiting && lrRandom.isOnceIn(lSeed % 2 == 0 ? 3 : 100)) {
                lWrite();
            }
            lBuffer.closeDue(lNow);
        }
        lBuffer.closeAll();
        while (!HasFailure() && (lWaiting || lBuffer.waitForWork(sNoTime))) {
            lWaiting ? lWrite() : lDetach();
        }
        EXPECT_EQ(lStore.mEvents + lStore.mLost, lEvents) << "seed " << lSeed;
        EXPECT_EQ(lStore.mClosedTo, lStore.mRows.size());
        EXPECT_EQ(lBuffer.getBytes(), 0U);
        EXPECT_TRUE(lBuffer.waitUntilStored(sNoTime));
        lLost += lStore.mLost;
    }
    EXPECT_GT(lLost, 0U);
}

TEST(SnBuffer, SideBySideNothingIsLostAndNobodyWaitsForLong) {
    ZTCSnBuffer lBuffer({});
    Store lStore;
    std::atomic<bool> lEnds{false};
    std::thread lWriter([&] {
        while (!lEnds) {
            lBuffer.waitForWork(std::chrono::minutes(1));
            lStore.takeFrom(lBuffer);
        }
    });
    std::thread lLook([&] {
        for (unsigned int lRound = 0; !lEnds; ++lRound) {
            lBuffer.takePorts(hostPorts());
            lBuffer.takeChange({1, "port", std::to_string(lRound), "changed", "state", "", ""});
            lBuffer.closeDue(Clock::now());
            lBuffer.getBytes();
            std::this_thread::yield();
        }
    });
    Agent lAgent(1);
    const ZTSHostPorts lPorts = hostPorts();
    for (unsigned int lStep = 0; lStep < 300; ++lStep) {
        const ZTSensorScopeData lData = lAgent.answer(20);
        lBuffer.takeRecords(lData, lPorts, lAgent.mRun, Clock::now());
        lBuffer.waitUntilStored(milliseconds(lStep % 2));
    }
    const std::uint64_t lTaken = lAgent.mRun.mTaken;
    lEnds = true;
    lLook.join();
    lBuffer.wake();  // also where nothing comes
    lWriter.join();
    lBuffer.closeAll();
    while (lStore.takeFrom(lBuffer)) {
    }
    EXPECT_EQ(lStore.mTaken[lAgent.mRun.mStart], lTaken);
    EXPECT_EQ(lStore.mClosedTo, lStore.mRows.size());
    EXPECT_EQ(lStore.mLost, 0U);
}

ZTSSensorRecord recordOf(std::uint8_t aCategory, std::uint8_t aSubcategory, ZTSensorBytes aData,
                         std::optional<ZTSPortNames> aTarget = {}) {
    return {1, {1'800'000'000, 0}, {1'800'000'000, 0}, aCategory, aSubcategory, aTarget, std::move(aData)};
}

TEST(SnBuffer, ARowNamesItsFabricAndThePortBeyondIt) {
    const ZTSHostPorts lPorts = hostPorts();
    const ZTSPortNames lTarget{{{1}}, {{2}}};
    ZTCSnBuffer lBuffer({});
    lBuffer.takeRecords({{lPorts.mLocal[0].mNames,
                          {recordOf(1, 2, {1, 0, 0, 0, 5, 6, 7, 8, 9, 10, 11, 12}),
                           recordOf(1, 2, {1, 0, 0, 0, 5, 6, 7, 8, 9, 10, 11, 12}, lTarget),
                           recordOf(1, 32, {1, 0, 0, 0, 0, 3, 1, 0}),  // the port's page,
                           recordOf(1, 32, {1, 0, 0, 0, 0, 3, 1, 1}),  // its area's,
                           recordOf(1, 32, {1, 0, 0, 0, 1, 3, 1, 0}),  // and that of a port nobody knows
                           recordOf(8, 2, {1, 0, 0, 0})}}},
                        lPorts, {}, {});
    const ZTSWwn lNamed{{5, 6, 7, 8, 9, 10, 11, 12}};
    const std::optional<ZTSWwn> lRemotes[] = {lNamed, lTarget.mPort, {{{99}}}, {}, {}, {}};
    const ZTSStoreBatch lBatch = lBuffer.detach(1);
    ASSERT_EQ(lBatch.mRows.size(), std::size(lRemotes));
    for (std::size_t lRow = 0; lRow < std::size(lRemotes); ++lRow) {
        EXPECT_EQ(lBatch.mRows[lRow].mRecord.mSeries.mRemote, lRemotes[lRow]) << lRow;
        EXPECT_EQ(lBatch.mRows[lRow].mRecord.mSeries.mFabric, "fabric a");
    }
}

TEST(SnBuffer, ThereIsWorkForWhatIsNewAndForRowsThatClose) {
    ZTCSnBuffer lBuffer({});
    Store lStore;
    Clock::time_point lNow{};
    ZTSAgentRun lRun;
    EXPECT_FALSE(lStore.takeFrom(lBuffer));
    lRun.mTaken = 1;
    lBuffer.takeRecords({{{}, {recordOf(8, 2, {1, 0, 0, 0})}}}, {}, lRun, lNow);
    EXPECT_FALSE(lBuffer.waitUntilStored(sNoTime));
    EXPECT_TRUE(lStore.takeFrom(lBuffer));
    EXPECT_TRUE(lBuffer.waitUntilStored(sNoTime));
    EXPECT_EQ(lStore.mClosedTo, 0U);
    // A fetch that brings nothing is no work, and closes nothing before its time.
    lRun.mSeen = 5;
    lBuffer.takeRecords({}, {}, lRun, lNow + std::chrono::seconds(9));
    lBuffer.closeDue(lNow + milliseconds(9999));
    EXPECT_FALSE(lStore.takeFrom(lBuffer));
    lBuffer.closeDue(lNow + std::chrono::seconds(10));
    EXPECT_TRUE(lStore.takeFrom(lBuffer));
    EXPECT_EQ(lStore.mClosedTo, 1U);
    EXPECT_EQ(lBuffer.getBytes(), 0U);

    // Losses of one sort wait as one; what is not known stays so.
    const auto lLose = [&](const char* apReason, ZTNanoseconds aFirst, std::optional<std::uint64_t> aEvents,
                           std::optional<std::uint64_t> aAtMost) {
        lBuffer.takeLoss({aFirst, aFirst + 5, "agent", apReason, aEvents, aAtMost});
    };
    lLose("limit", 10, 7, {});
    lLose("killed", 10, {}, 30);
    lLose("limit", 3, 5, {});
    lLose("killed", 20, {}, {});
    const ZTSStoreBatch lBatch = lBuffer.detach(2);
    ASSERT_EQ(lBatch.mLosses.size(), 2U);
    EXPECT_EQ(lBatch.mLosses[0].mFirst, 3);
    EXPECT_EQ(lBatch.mLosses[0].mLast, 15);
    EXPECT_EQ(lBatch.mLosses[0].mEvents, 12U);
    EXPECT_FALSE(lBatch.mLosses[1].mEvents || lBatch.mLosses[1].mAtMost);
}

TEST(SnBuffer, VeryManyRowsAreDetachedInPartsThatAgreeWithWhatTheirRunHasTaken) {
    ZTCSnBuffer lBuffer({});
    Store lStore;
    ZTSAgentRun lRun;
    const auto lTake = [&](std::uint8_t aKind, unsigned int aRecords) {
        ZTSensorScopeData lData(1);
        for (unsigned int lRecord = 0; lRecord < aRecords; ++lRecord) {
            lData[0].mRecords.push_back(recordOf(
                200, aKind, {static_cast<std::uint8_t>(lRecord), static_cast<std::uint8_t>(lRecord >> 8)}));
        }
        lRun.mTaken += aRecords;
        lBuffer.takeRecords(lData, {}, lRun, {});
    };
    lTake(1, 60000);
    EXPECT_TRUE(lStore.takeFrom(lBuffer));
    EXPECT_LT(lStore.mRows.size(), 30000U);
    lTake(1, 10);  // what has grown is not forgotten
    EXPECT_TRUE(lStore.takeFrom(lBuffer));
    lRun = {};
    lRun.mStart = 1;
    lTake(2, 40000);  // another agent's
    lBuffer.closeAll();
    while (lStore.takeFrom(lBuffer)) {
    }
    EXPECT_EQ(lStore.mEvents, 100010U);
    EXPECT_GT(lStore.mBatches, 4U);
    EXPECT_EQ(lStore.mClosedTo, 100000U);
}

// FPINs that say the same become one, sums those of hours; what finds no room then is told, and so exact.
TEST(SnBuffer, WhatTheHostTellsIsBoundedAndNothingOfItGoesSilently) {
    constexpr std::size_t lLimit = 1 << 20;
    ZTCSnBuffer lBuffer({{}, lLimit});
    Store lStore;
    lBuffer.takeChange({1, "port", "x", "changed", "state", "", ""});
    const ZTSStoreBatch lWaiting = lBuffer.detach(1);  // in a store that stands still
    const std::size_t lBefore = lBuffer.getBytes();
    std::uint64_t lFpins = 0;
    const auto lTake = [&](unsigned int aAttached, unsigned int aMinute) {
        ZTSHostNews lNews;
        ZTSFpin& lrFpin = lNews.mFpins.emplace_back();
        lrFpin.mFirst = lrFpin.mLast = aMinute * 60 * ZTSecond;
        lrFpin.mDescriptor = "link_integrity";
        lrFpin.mAttached =
            ZTSWwn{{1, static_cast<std::uint8_t>(aAttached >> 8), static_cast<std::uint8_t>(aAttached)}};
        lNews.mMeasures.add(lrFpin.mFirst, {}, "commands", 1);
        lBuffer.takeHost(std::move(lNews));
        ++lFpins;
    };
    for (unsigned int lRound = 0; lRound < 3000; ++lRound) {
        lTake(lRound % 7, lRound);
        EXPECT_LE(lBuffer.getBytes(), lBefore + lLimit / 8);
    }
    const auto lDetach = [&] {
        lBuffer.stored();
        return lBuffer.detach(1);
    };
    ZTSStoreBatch lBatch = lDetach();
    std::uint64_t lTimes = 0, lCommands = 0;
    for (const ZTSFpin& lrFpin : lBatch.mHost.mFpins) {
        lTimes += lrFpin.mTimes;
    }
    for (const auto& [lrKey, lValue] : lBatch.mHost.mMeasures.getValues()) {
        lCommands += lValue;
    }
    EXPECT_EQ(lTimes, lFpins);
    EXPECT_EQ(lCommands, lFpins);
    EXPECT_TRUE(lBatch.mChanges.empty());
    // No two are alike.
    lFpins = 0;
    for (unsigned int lRound = 0; lRound < 5000; ++lRound) {
        lTake(lRound, lRound / 100);
    }
    // The end of a stall is the last to go: without it the stall would stand for ever.
    for (const std::size_t lOver : {0U, 20U}) {
        ZTSHostNews lNews;
        for (std::size_t lStall = 0; lStall < (lOver != 0 ? lOver : 2000); ++lStall) {
            lNews.mStalls.push_back({1, 2, lOver != 0, "sd" + std::to_string(lStall), "", "", 1, "path"});
        }
        lBuffer.takeHost(std::move(lNews));
    }
    EXPECT_LE(lBuffer.getBytes(), lBefore + lLimit / 8);
    lBatch = lDetach();
    ASSERT_EQ(lBatch.mChanges.size(), 2U);
    EXPECT_EQ(std::count_if(lBatch.mHost.mStalls.begin(), lBatch.mHost.mStalls.end(),
                            [](const ZTSStall& acrStall) { return acrStall.mIsOver; }),
              20);
    EXPECT_EQ(lBatch.mChanges[0].mAttribute, "lost_fpins");
    EXPECT_GT(lBatch.mHost.mFpins.size(), 0U);
    EXPECT_EQ(lBatch.mHost.mFpins.size() + std::stoull(lBatch.mChanges[0].mAfter), lFpins);
    EXPECT_TRUE(lDetach().isEmpty());
    EXPECT_EQ(lBuffer.getBytes(), 0U);
}

}  // namespace
