// Rows as a plain model makes them, that knows from the agent what of a block a repeat has too.
#include <malloc.h>

#include "FailingAllocator.h"
#include "Folding.h"
#include "RandomRecords.h"
#include "TestSupport.h"

namespace {

using Clock = ZTCFolding::Clock;
using std::chrono::milliseconds;

constexpr ZTSFoldOptions sOptions{std::chrono::seconds(10), 100};
const ZTCFolding::Namer sNobody = [](ZTSRecord&) {};

ZTSCollected collectedOf(const ZTSPortNames& acrInitiator, const ZTSSensorRecord& acrRecord) {
    return {acrInitiator,
            acrRecord.mCategory,
            acrRecord.mSubcategory,
            acrRecord.mTarget,
            toNanoseconds(acrRecord.mFirst),
            toNanoseconds(acrRecord.mLast),
            acrRecord.mOccurrences,
            acrRecord.mData};
}

bool hasWord(const ZTSensorBytes& acrData, std::size_t aAt, unsigned int aWord) {
    return acrData.size() >= aAt + 4 && acrData[aAt] == (aWord & 255) && acrData[aAt + 1] == aWord >> 8 &&
           acrData[aAt + 2] == 0 && acrData[aAt + 3] == 0;
}

// As the agent's own table has it.
ZTSEventLayout agentsLayout(std::uint8_t aCategory, std::uint8_t aSubcategory, const ZTSensorBytes& acrData) {
    const ZTSEventLayout lWhole{static_cast<std::uint32_t>(acrData.size())};
    const ZTSScopeEventFacts* const lpFacts = ZTFindScopeEventFacts(aCategory, aSubcategory);
    if (lpFacts == nullptr || !hasWord(acrData, 0, 1)) {
        return lWhole;
    }
    const ZTSScopeEventBlock& lrBlock = lpFacts->mBlock;
    const unsigned int lSame = 4U + lrBlock.mNames * 8U + lrBlock.mSame * 4U;
    for (unsigned int lSet = 0; lSet < lrBlock.mSets; ++lSet) {
        if (!hasWord(acrData, lSame + lSet * 36, 256)) {
            return lWhole;
        }
    }
    const unsigned int lAdded = lrBlock.mAdded * 4U;
    const bool lIsWhole = lAdded != 0 ? acrData.size() >= lSame && (acrData.size() - lSame) % lAdded == 0
                                      : acrData.size() == lSame + lrBlock.mSets * 36U;
    return lIsWhole ? ZTSEventLayout{lSame, lrBlock.mSets, static_cast<std::uint8_t>(lAdded)} : lWhole;
}

struct Model {
    struct Row {
        ZTSRecord mRecord;
        ZTSEventLayout mLayout;
        Clock::time_point mOpened;
        bool mIsOpen = true;
    };

    void take(const ZTSPortNames& acrInitiator, const ZTSSensorRecord& acrRecord, Clock::time_point aNow) {
        close(aNow);
        const auto& lrData = acrRecord.mData;
        const ZTSEventLayout lLayout = agentsLayout(acrRecord.mCategory, acrRecord.mSubcategory, lrData);
        const ZTNanoseconds lOne = toNanoseconds(acrRecord.mFirst);
        const ZTNanoseconds lOther = toNanoseconds(acrRecord.mLast);
        const ZTSSeries lSeries{
            acrInitiator, acrRecord.mCategory, acrRecord.mSubcategory, acrRecord.mTarget, {}, {}};
        const auto lAt = std::find_if(mRows.rbegin(), mRows.rend(), [&](const Row& acrRow) {
            return acrRow.mIsOpen && acrRow.mRecord.mSeries == lSeries && acrRow.mLayout == lLayout &&
                   std::equal(lrData.begin(), lrData.begin() + lLayout.mSame, acrRow.mRecord.mData.begin());
        });
        const bool lFits = lAt != mRows.rend() && std::min(lOne, lOther) >= lAt->mRecord.mFirst &&
                           std::min(lOne, lOther) - lAt->mRecord.mFirst < sOptions.mWindow.count() &&
                           (lLayout.mAdded == 0 || lrData.size() == lLayout.mSame ||
                            lAt->mRecord.mData.size() + lrData.size() - lLayout.mSame < sOptions.mCeiling);
        if (!lFits) {
            mRows.push_back(
                {{lSeries, std::min(lOne, lOther), std::max(lOne, lOther), acrRecord.mOccurrences, lrData},
                 lLayout,
                 aNow});
            return;
        }
        ZTSRecord& lrRow = lAt->mRecord;
        lrRow.mLast = std::max({lrRow.mLast, lOne, lOther});
        lrRow.mOccurrences += acrRecord.mOccurrences;
        if (lLayout.mAdded != 0) {
            lrRow.mData.insert(lrRow.mData.end(), lrData.begin() + lLayout.mSame, lrData.end());
        }
        for (unsigned int lSet = 0; lSet < lLayout.mSets; ++lSet) {
            for (std::size_t lByte = lLayout.mSame + lSet * 36 + 4; lByte % 36 != lLayout.mSame % 36;
                 ++lByte) {
                lrRow.mData[lByte] = static_cast<std::uint8_t>(lrRow.mData[lByte] | lrData[lByte]);
            }
        }
    }
    void close(Clock::time_point aNow) {
        for (Row& lrRow : mRows) {
            lrRow.mIsOpen = lrRow.mIsOpen && aNow - lrRow.mOpened < sOptions.mWindow;
        }
    }

    std::deque<Row> mRows;
};

bool isEqual(const ZTSFoldedRow& acrRow, const Model::Row& acrModel) {
    const ZTSRecord& lrOne = acrRow.mRecord;
    const ZTSRecord& lrOther = acrModel.mRecord;
    return lrOne.mSeries == lrOther.mSeries && lrOne.mFirst == lrOther.mFirst &&
           lrOne.mLast == lrOther.mLast && lrOne.mOccurrences == lrOther.mOccurrences &&
           lrOne.mData == lrOther.mData && acrRow.mIsOpen == acrModel.mIsOpen;
}

TEST(Folding, MakesTheRowsOfAPlainModelWhateverComesAndWhateverMemoryFails) {
    for (unsigned int lSeed = 0; lSeed < ZTTestRounds(6U, 300U); ++lSeed) {
        ZTCRandomRecords lRandom(lSeed);
        ZTCFolding lFolding(sOptions);
        Model lModel;
        Clock::time_point lNow{};
        for (unsigned int lStep = 0; lStep < 3000; ++lStep) {
            const ZTSPortNames lInitiator = lRandom.makeInitiator();
            const ZTSSensorRecord lRecord = lRandom.make();
            lNow += milliseconds(lRandom.below(100));
            try {
                const FailingAllocator lFailing(lRandom.below(6));
                ASSERT_TRUE(lFolding.take(collectedOf(lInitiator, lRecord), lNow, sNobody));
            } catch (const std::bad_alloc&) {
                lModel.close(lNow);
                continue;
            }
            lModel.take(lInitiator, lRecord, lNow);
            if (lRandom.isOnceIn(50)) {
                lFolding.close(lNow += milliseconds(lRandom.below(2000)));
                lModel.close(lNow);
            }
            if (lRandom.isOnceIn(100)) {
                const auto lOpen = std::find_if(lModel.mRows.begin(), lModel.mRows.end(),
                                                [](const Model::Row& acrRow) { return acrRow.mIsOpen; });
                lFolding.dropFirst(static_cast<std::size_t>(lOpen - lModel.mRows.begin()));
                lModel.mRows.erase(lModel.mRows.begin(), lOpen);
                ASSERT_TRUE(std::equal(lFolding.getRows().begin(), lFolding.getRows().end(),
                                       lModel.mRows.begin(), lModel.mRows.end(), isEqual))
                    << "seed " << lSeed << ", step " << lStep;
            }
        }
        lFolding.closeAll();
        lFolding.dropFirst(lFolding.getRows().size());
        EXPECT_EQ(lFolding.getBytes(), 0U);
    }
}

// By series and, where it counts, minute.
std::map<std::pair<ZTSSeries, ZTNanoseconds>, std::uint64_t> sumsOf(ZTCFolding& arFolding,
                                                                    ZTNanoseconds aSpan) {
    std::map<std::pair<ZTSSeries, ZTNanoseconds>, std::uint64_t> lSums;
    for (const ZTSFoldedRow& lrRow : arFolding.getRows()) {
        EXPECT_LE(lrRow.mRecord.mFirst, lrRow.mRecord.mLast);
        lSums[{lrRow.mRecord.mSeries, lrRow.mRecord.mFirst / aSpan}] += lrRow.mRecord.mOccurrences;
    }
    return lSums;
}

TEST(Folding, CoarseRowsHaveTheSumsOfTheirTimeAndTakeNothingFromRowsWithIds) {
    for (unsigned int lSeed = 0; lSeed < ZTTestRounds(4U, 200U); ++lSeed) {
        ZTCRandomRecords lRandom(lSeed);
        ZTCFolding lFolding(sOptions);
        Clock::time_point lNow{};
        const auto lTakeSome = [&](unsigned int aCount) {
            for (unsigned int lStep = 0; lStep < aCount; ++lStep) {
                lFolding.take(collectedOf(lRandom.makeInitiator(), lRandom.make()),
                              lNow += milliseconds(lRandom.below(100)), sNobody);
            }
        };
        lTakeSome(500);
        std::uint64_t lId = 0;
        for (ZTSFoldedRow& lrRow : lFolding.getRows()) {
            lrRow.mId = ++lId;
        }
        lTakeSome(2000);
        for (const ZTNanoseconds lSpan : {60 * ZTSecond, 3600 * ZTSecond}) {
            const auto lBefore = sumsOf(lFolding, lSpan);
            {
                const FailingAllocator lFails(1);
                EXPECT_THROW(lFolding.foldCoarsely(lSpan), std::bad_alloc);
            }
            EXPECT_EQ(lFolding.getRows()[lId].mId, 0U);
            lFolding.foldCoarsely(lSpan);
            EXPECT_EQ(sumsOf(lFolding, lSpan), lBefore);
            EXPECT_LE(lFolding.getRows().size(), lId + lBefore.size());
            for (std::uint64_t lRow = 0; lRow < lId; ++lRow) {
                EXPECT_EQ(lFolding.getRows()[lRow].mId, lRow + 1);
            }
            lTakeSome(500);  // the rows that are open are found still
        }
    }
}

TEST(Folding, ACoarseRowSaysWhatItsEventsHaveInCommon) {
    const ZTSPortNames lInitiator;
    ZTCFolding lFolding(sOptions);
    const auto lTake = [&](std::uint8_t aSenseKey, std::uint8_t aLun) {
        ZTSSensorRecord lRecord{
            1, {}, {}, 4, 4, {}, {1, 0, 0, 0, 80, 6, 1, 96, 0, 0, 0, 1, aSenseKey, 0, 0, 0}};
        lRecord.mData.resize(128);
        lRecord.mData[20 + 1] = lRecord.mData[56 + 1] = lRecord.mData[92 + 1] = 1;
        lRecord.mData[24] = aLun;
        lFolding.take(collectedOf(lInitiator, lRecord), {}, sNobody);
    };
    lTake(2, 1);
    lTake(2, 4);
    lFolding.closeAll();
    lTake(2, 8);
    lFolding.foldCoarsely(ZTSecond);
    ASSERT_EQ(lFolding.getRows().size(), 1U);
    EXPECT_EQ(lFolding.getRows()[0].mRecord.mData[24], 13);  // the logical units of all
    lTake(3, 1);
    lFolding.foldCoarsely(ZTSecond);
    ASSERT_EQ(lFolding.getRows().size(), 1U);
    EXPECT_EQ(lFolding.getRows()[0].mRecord.mData.size(), 12U);  // the port
    EXPECT_EQ(lFolding.getRows()[0].mRecord.mOccurrences, 4U);
}

// Thousands of ports beyond the fabric: how long it takes grows as the rows do, not as their square.
TEST(Folding, CoarseFoldingIsQuickWhereNothingFolds) {
    using Seconds = std::chrono::duration<double>;
    ZTCFolding lFolding(sOptions);
    const ZTSPortNames lInitiator{};
    ZTSSensorRecord lRecord{1, {}, {}, 1, 1, {}, {1, 0, 0, 0, 80, 6, 1, 96, 0, 0, 0, 1}};
    const ZTCFolding::Namer lNamer = [&](ZTSRecord& arRecord) {
        arRecord.mSeries.mRemote.emplace();
        std::copy_n(arRecord.mData.begin() + 4, 8, arRecord.mSeries.mRemote->mBytes.begin());
    };
    const auto lBegin = Clock::now();
    constexpr std::size_t lRows = 30000;
    for (std::size_t lRow = 0; lRow < lRows; ++lRow) {
        lRecord.mData[4] = static_cast<std::uint8_t>(lRow);
        lRecord.mData[5] = static_cast<std::uint8_t>(lRow >> 8);
        lFolding.take(collectedOf(lInitiator, lRecord), {}, lNamer);
    }
    const auto lTaken = Clock::now();
    lFolding.foldCoarsely(ZTSecond);
    EXPECT_LT(Seconds(Clock::now() - lTaken) / Seconds(lTaken - lBegin), 20);
    EXPECT_EQ(lFolding.getRows().size(), lRows);
}

TEST(Folding, KnowsWhatItsRowsTakeAndStaysInItsLimit) {
    if (ZTIsSanitized) {
        GTEST_SKIP() << "the sanitizers have allocators of their own";
    }
    const std::size_t lBefore = mallinfo2().uordblks;
    ZTCFolding lFolding(sOptions);
    lFolding.setLimit(4 << 20);
    ZTCRandomRecords lRandom(1);
    Clock::time_point lNow{};
    const auto lName = [](ZTSRecord& arRecord) { arRecord.mSeries.mFabric = "10:00:00:05:1e:00:00:01"; };
    unsigned int lRefused = 0;
    for (unsigned int lStep = 0; lStep < 60000; ++lStep) {
        const auto lCollected = lRandom.make();
        lRefused +=
            lFolding.take(collectedOf(lRandom.makeInitiator(), lCollected), lNow += milliseconds(30), lName)
                ? 0
                : 1;
    }
    const auto lReal = static_cast<double>(mallinfo2().uordblks - lBefore);
    const auto lSaid = static_cast<double>(lFolding.getBytes());
    EXPECT_GT(lRefused, 0U);
    EXPECT_NEAR(lSaid / (4 << 20), 1, 0.02);
    EXPECT_NEAR(lReal / lSaid, 1, 0.1) << lReal << " and " << lSaid;
}

}  // namespace
