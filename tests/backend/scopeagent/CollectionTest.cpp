// What the collection keeps to whatever comes: its limit, its memory, and what a fetch hands out.
#include <malloc.h>

#include <map>

#include "EncodableStream.h"
#include "FailingAllocator.h"
#include "TestCollection.h"

namespace {

constexpr unsigned int sLimit = ZTCScopeAgentSystem::TotalDataLimit;
constexpr unsigned int sTraceOff = 127;

const std::string sName = ZTTestName(1);

ZTSTestEvent plogi(unsigned int aBoard, unsigned int aFrom, unsigned int aTo) {
    return {aBoard, 1, 1, ZTTestPayload(ZTTestName(aFrom) + ZTTestName(aTo))};
}

// New records: of 11 bytes, and of 15.
void fill(unsigned int aSmall, unsigned int aLarger = 0) {
    const ZTSTestEvent lOfEleven[] = {{0, 2, 1}, {0, 4, 32}};
    for (unsigned int lAt = 0; lAt < aSmall; ++lAt) {
        lOfEleven[lAt % 2].deliver();
    }
    for (unsigned int lPage = 1; lPage <= aLarger; ++lPage) {
        ZTSTestEvent{0, 1, 32, ZTTestRscn({lPage})}.deliver();
    }
}

// Does the work with the aFailing-th allocation failing. Whether one failed.
template <class Work>
bool hasFailedIn(unsigned int aFailing, const Work& acrWork) {
    FailingAllocator lAllocator(aFailing);
    bool lIsOther = false;
    try {
        acrWork();
    } catch (const ZTCNoMemoryEx&) {
    } catch (...) {
        lIsOther = true;
    }
    lAllocator.stop();
    EXPECT_FALSE(lIsOther) << "another exception than ZTCNoMemoryEx";
    return lAllocator.hasFailed();
}

// Everything that is sent is fetched, or counted as lost.
class Balance {
  public:
    explicit Balance(ZTCTestCollection& arCollection) : mrCollection(arCollection) {}

    void deliver(const ZTSTestEvent& acrEvent, bool aInThread = false) {
        aInThread ? std::thread([&] { acrEvent.deliver(); }).join() : acrEvent.deliver();
        sent(acrEvent);
    }
    void sent(const ZTSTestEvent& acrEvent) {
        mSent += acrEvent.isRscn() ? static_cast<unsigned int>(acrEvent.mPayload.size() / 4 - 1) : 1;
    }
    void fetched(const ZTCTestFetch& acrFetch) { mSent -= acrFetch.getOccurrences(); }
    // Two fetches: what fails in the course of the first is told of at the second.
    ZTCTestFetch settle() {
        ZTCTestFetch lFetch = mrCollection.fetch();
        EXPECT_EQ(mrCollection.fetch().getOccurrences(), 0U);
        mLog = mrCollection.takeLog();
        EXPECT_EQ(lFetch.getOccurrences() + ZTTestLostIn(mLog, " for want of memory"), mSent);
        mSent = 0;
        return lFetch;
    }
    const std::string& getLog() const { return mLog; }

  private:
    ZTCTestCollection& mrCollection;
    unsigned int mSent = 0;
    std::string mLog;
};

// All spare chunks, taken away for good.
std::vector<ZTCScopeAgentRecordLists> drain(ZTCScopeAgentCollection& arCollection) {
    std::vector<ZTCScopeAgentRecordLists> lTaken(2 * sLimit / ZTCScopeAgentChunks::Room + 20);
    for (ZTCScopeAgentRecordLists& lrTaken : lTaken) {
        ZTTestLink(0).deliver();
        lrTaken = arCollection.detach(2);
    }
    return lTaken;
}

// Delivers records of 39 and of 43 bytes, until the first chunk has just so much room. None is repeated by an
// event of the category.
void fillChunk(Balance& arBalance, unsigned int aRoom, unsigned int aCategory) {
    unsigned int lFull = ZTCScopeAgentChunks::Room - aRoom;
    for (unsigned int lPage = 1; lFull % 39 != 0; ++lPage) {
        arBalance.deliver({0, 1, 32, ZTTestRscn({lPage})});
        lFull -= 43;
    }
    for (unsigned int lAt = 0; lAt < lFull / 39; ++lAt) {
        arBalance.deliver(lAt % 2 == 0 ? ZTSTestEvent{0, aCategory == 2 ? 8U : 2U, 1}
                                       : ZTSTestEvent{0, aCategory == 16 ? 8U : 16U, 1});
    }
}

// An event that finds its chunk full, but for aRoom bytes which so many of the same before it take, with
// every allocation failing in turn: how many there were.
unsigned int failIn(ZTCTestCollection& arCollection, const ZTSTestEvent& acrEvent, unsigned int aRoom,
                    unsigned int aBefore) {
    SCOPED_TRACE(testing::Message() << acrEvent.mCategory << ", " << acrEvent.mSubcategory << " after "
                                    << aBefore);
    Balance lBalance(arCollection);
    // What is fetched when the events before are followed by what this does.
    const auto lFetch = [&](const auto& acrDo) {
        const auto lTaken = drain(arCollection.getSystem().getCollection());
        fillChunk(lBalance, aRoom, acrEvent.mCategory);
        for (unsigned int lAt = 0; lAt < aBefore; ++lAt) {
            lBalance.deliver(acrEvent);
        }
        acrDo();
        lBalance.deliver(ZTTestLink(1), true);
        return lBalance.settle().getMasked();
    };
    const std::string lWithout = lFetch([] {});
    const std::string lWith = lFetch([&] { lBalance.deliver(acrEvent); });
    for (unsigned int lFailing = 1;; ++lFailing) {
        bool lHasThrown = true;
        bool lHasFailed = true;
        const std::string lFetched = lFetch([&] {
            lHasFailed = hasFailedIn(lFailing, [&] {
                acrEvent.deliver();
                lHasThrown = false;
            });
            lBalance.sent(acrEvent);
        });
        EXPECT_FALSE(lHasThrown);
        EXPECT_TRUE(lFetched == (lHasFailed ? lWithout : lWith) || acrEvent.isRscn());
        EXPECT_EQ(countIn(lBalance.getLog(), ": Error: Out of Memory, processing event callback\n"),
                  lHasFailed ? 1U : 0U);
        if (!lHasFailed) {
            return lFailing - 1;
        }
    }
}

// The same with a command, and events before it.
unsigned int failIn(ZTCTestCollection& arCollection, const std::string& acrCommand) {
    const ZTCPointer<ZTCBuffer> lCommand = ZTCTestCollection::commandOf(acrCommand);
    Balance lBalance(arCollection);
    for (unsigned int lFailing = 1;; ++lFailing) {
        SCOPED_TRACE(testing::Message() << "command " << int{acrCommand[0]} << ", allocation " << lFailing);
        for (unsigned int lAt = 0; lAt < 40; ++lAt) {
            lBalance.deliver(plogi(lAt % 2, lAt, lAt));  // more than a response has room for at first
        }
        ZTCPointer<ZTCBuffer> lResponse;
        bool lHasThrown = true;
        const bool lHasFailed = hasFailedIn(lFailing, [&] {
            arCollection.getSystem().getScopeAgentProtocolHandler()->process(lCommand, lResponse);
            lHasThrown = false;
        });
        EXPECT_EQ(lHasThrown, lHasFailed);
        lBalance.deliver(ZTTestLink(1), true);
        if (acrCommand[0] == 1 && !lHasThrown) {
            lBalance.fetched(ZTCTestFetch(ZTCTestCollection::textOf(lResponse)));
        }
        lBalance.settle();
        if (!lHasFailed) {
            return lFailing - 1;
        }
    }
}

// What is allocated, and what is resident and not shared.
std::pair<double, double> memory() {
    const struct mallinfo2 lInfo = mallinfo2();
    double lResident = 0;
    double lShared = 0;
    std::istringstream(readFile("/proc/self/statm")) >> lResident >> lResident >> lShared;
    return {static_cast<double>(lInfo.uordblks + lInfo.hblkhd), lResident - lShared};
}

}  // namespace

TEST(Collection, TakesAnEventOneByteBelowItsLimitAndNoneAtIt) {
    inCollection(2, [](ZTCTestCollection& arCollection) {
        fill(23823, 6);
        plogi(1, 1, 2).deliver();
        const ZTCTestFetch lBelow = arCollection.fetch();
        EXPECT_EQ(lBelow.getSize(), sLimit - 1 + 27);
        EXPECT_EQ(lBelow.of(1).size(), 1U);

        fill(23819, 9);
        setLogCode(sTraceOff);
        for (const ZTSTestEvent& lrEvent :
             {plogi(1, 1, 2), ZTTestLink(7), ZTSTestEvent{0, 1, 32, ZTTestRscn({9})}}) {
            lrEvent.deliver();  // a new one, one of an unknown board, a repeat
        }
        EXPECT_EQ(arCollection.fetch().getSize(), sLimit);
        const std::string lLog = arCollection.takeLog();
        EXPECT_EQ(countIn(lLog, "Current size = 262144\n"), 3U);
        for (std::size_t lAt = 0; (lAt = lLog.find("Current size", lAt)) != std::string::npos; ++lAt) {
            const std::string lNext = lLog.substr(lLog.find('\n', lAt) + 1, 300);
            EXPECT_LT(lNext.find(": Ignoring the event as the limit on the total Event Data\n"),
                      lNext.find('\n'));
        }
        EXPECT_FALSE(contains(lLog, "is bad"));
        EXPECT_EQ(ZTTestLostIn(lLog, " at the limit"), 3U);
        EXPECT_EQ(ZTGetStatistic(ZTS_LimitReached), 2U);

        plogi(1, 1, 2).deliver();
        EXPECT_EQ(arCollection.fetch().getOccurrences(), 1U);
    });
}

TEST(Collection, PassesItsLimitByOneEventAThreadAtMostAndLosesNothingUncounted) {
    const ZTCTestPeriod lTurn(ZTP_StatisticsTurn);
    inCollection(2, [](ZTCTestCollection& arCollection) {
        constexpr unsigned int lThreads = 8;
        constexpr unsigned int lEvents = ZTIsSanitized ? 10000 : 100000;
        std::atomic<bool> lIsRunning{true};
        std::map<std::string, std::string> lLatest;  // a thread's last number by its name
        unsigned int lFetched = 0;
        bool lWasFull = false;
        const auto lTake = [&] {
            setLogCode(ZTLL_Notice.mBit);  // what was lost is told of by the fetch
            const ZTCTestFetch lFetch = arCollection.fetch();
            setLogCode(0);
            EXPECT_LE(lFetch.getSize(), sLimit - 1 + lThreads * 27);
            lFetched += lFetch.getOccurrences();
            lWasFull = lWasFull || lFetch.getSize() >= sLimit;
            for (const unsigned int lBoard : {0U, 1U}) {
                for (const ZTSTestRecord& lrRecord : lFetch.of(lBoard)) {
                    std::string& lrLatest = lLatest[lrRecord.mData.substr(4, 8)];
                    EXPECT_LT(lrLatest, lrRecord.mData.substr(12)) << "out of order, or twice";
                    lrLatest = lrRecord.mData.substr(12);
                }
            }
        };
        std::thread lHammers([&] {
            inThreads(lThreads, [](unsigned int aThread) {
                for (unsigned int lAt = 0; lAt < lEvents; ++lAt) {
                    plogi(aThread % 2, aThread, lAt).deliver();
                }
            });
            lIsRunning = false;
        });
        for (unsigned int lRound = 0; lIsRunning; ++lRound) {
            EXPECT_TRUE(lRound % 8 != 0 || waitUntil([&] {
                            return !lIsRunning || arCollection.getSystem().isTotalLimitOnScopeDataReached();
                        }));
            lTake();
        }
        lHammers.join();
        lTake();
        EXPECT_TRUE(lWasFull);
        EXPECT_EQ(lFetched + ZTTestLostIn(arCollection.takeLog(), " at the limit"), lThreads * lEvents);
        // So do the figures say, the lost ones at their next turn.
        for (const ZTEStatistic lFigure : {ZTS_RecordedEvents, ZTS_Records, ZTS_FetchedEvents}) {
            EXPECT_EQ(ZTGetStatistic(lFigure), lFetched);
        }
        EXPECT_EQ(ZTGetStatistic(ZTS_HeldEvents) + ZTGetStatistic(ZTS_HeldBytes), 0U);
        EXPECT_EQ(ZTGetStatistic(ZTRowOf(ZTS_Lost, ZTSAL_Limit)), lThreads * lEvents - lFetched);
        EXPECT_TRUE(waitUntil(
            [] { return ZTGetStatistic(ZTRowOf(ZTS_Events, ZTSEK_ElsPlogi)) == lThreads * lEvents; }));
    });
}

TEST(Collection, NeedsNoMoreMemoryAfterManyFetchesThanAfterTen) {
    inCollection(2, [](ZTCTestCollection& arCollection) {
        constexpr unsigned int lRounds = ZTIsSanitized ? 20 : 100;
        std::pair<double, double> lEarly;
        for (unsigned int lRound = 1; lRound <= lRounds; ++lRound) {
            fill(sLimit / 11 + 10);
            EXPECT_GE(arCollection.ask("\x01").size(), sLimit);
            if (lRound == 10) {
                lEarly = memory();
            }
        }
        if (!ZTIsSanitized) {
            const auto lLate = memory();
            EXPECT_LT(lLate.first, lEarly.first * 1.25);
            EXPECT_LT(lLate.second, lEarly.second * 1.5);
        }
    });
}

TEST(Collection, LosesAnEventForWantOfMemoryAndNothingElse) {
    inCollection(2, [](ZTCTestCollection& arCollection) {
        arCollection.ask(std::string(1, '\0') + wordOf(4096));
        arCollection.ask("\x03" + wordOf(1) + sName + sName + wordOf(0x010203));
        setLogCode(sTraceOff);
        std::pair<double, double> lEarly;
        for (unsigned int lRound = 0; lRound < 4; ++lRound) {
            for (const ZTSTestEvent& lrEvent : ZTTestOneOfEach(sName)) {
                EXPECT_EQ(failIn(arCollection, lrEvent, 0, 0), 1U);
                const ZTSScopeEventFacts& lrFacts =
                    *ZTFindScopeEventFacts(lrEvent.mCategory, lrEvent.mSubcategory);
                if (lrFacts.mBlock.mAdded != 0) {  // a record that its repeat takes into the next chunk
                    constexpr unsigned int lHead =
                        ZTCScopeAgentRecord::HeadSize + ZTCScopeData::FixedSize + ZTCScopeData::NamesSize;
                    EXPECT_EQ(failIn(arCollection, lrEvent, lHead + lrFacts.mBlock.getLength(), 1), 1U);
                }
            }
            if (lRound == 1) {
                lEarly = memory();
            }
        }
        EXPECT_LT(memory().first, lEarly.first + 10000) << "what failed left memory behind";
    });
}

TEST(Collection, StaysWholeWhenACommandFindsNoMemory) {
    inCollection(2, [](ZTCTestCollection& arCollection) {
        setLogCode(sTraceOff);
        std::string lTargets = "\x03" + wordOf(3);
        for (const unsigned int lTarget : {30U, 31U, 32U}) {
            lTargets += ZTTestName(lTarget + 100) + ZTTestName(lTarget) + wordOf(lTarget);
        }
        for (const std::string& lrCommand : {std::string("\x01"), std::string(5, '\0'), lTargets}) {
            EXPECT_GT(failIn(arCollection, lrCommand), 3U);
        }
        // Whichever way it came about, they are registered now.
        plogi(0, 32, 1).deliver();
        EXPECT_EQ(arCollection.fetch().of(0).at(0).mNames, ZTTestName(132) + ZTTestName(32));
    });
}

TEST(Collection, HoldsATargetIn200Bytes) {
    inCollection(1, [](ZTCTestCollection& arCollection) {
        constexpr unsigned int lTargets = 30000;
        constexpr unsigned int lAtOnce = 3000;
        const auto lBefore = memory();
        for (unsigned int lTarget = 0; lTarget < lTargets;) {
            std::string lCommand = "\x03" + wordOf(lAtOnce);
            for (const unsigned int lEnd = lTarget + lAtOnce; lTarget < lEnd; ++lTarget) {
                lCommand += ZTTestName(lTarget + 1000000) + ZTTestName(lTarget) + wordOf(lTarget);
            }
            EXPECT_EQ(arCollection.ask(lCommand), std::string(5, '\0'));
        }
        if (!ZTIsSanitized) {
            EXPECT_LE(memory().first - lBefore.first, 200.0 * lTargets);
        }
        plogi(0, lTargets - 1, 1).deliver();
        EXPECT_EQ(arCollection.fetch().of(0).at(0).mNames,
                  ZTTestName(lTargets - 1 + 1000000) + ZTTestName(lTargets - 1));
    });
}

TEST(Collection, HandsOutRecordsThatNeverChangeWithTheTimesOfTheirEvents) {
    inCollection(2, [](ZTCTestCollection& arCollection) {
        arCollection.ask(std::string(1, '\0') + wordOf(4096));
        const auto lNow = [] {
            const auto lTime = std::chrono::system_clock::now().time_since_epoch();
            return static_cast<std::uint64_t>(std::chrono::nanoseconds(lTime).count());
        };
        for (ZTSTestEvent lEvent : ZTTestOneOfEach(sName)) {
            SCOPED_TRACE(testing::Message() << lEvent.mCategory << ", " << lEvent.mSubcategory);
            if (lEvent.isRscn()) {
                lEvent.mPayload = ZTTestRscn({0x010203});
            }
            const std::uint64_t lStart = lNow();
            lEvent.deliver();
            const std::uint64_t lOnce = lNow();
            EXPECT_TRUE(waitUntil([&] { return lNow() > lOnce; }));
            const std::uint64_t lRepeat = lNow();
            lEvent.deliver();
            const ZTCTestFetch lBoth = arCollection.fetch();
            const ZTSTestRecord& lrRecord = lBoth.of(0).at(0);
            EXPECT_EQ(lrRecord.mOccurrences, 2U);
            EXPECT_TRUE(lStart <= lrRecord.mFirst && lrRecord.mFirst <= lOnce);
            EXPECT_TRUE(lRepeat <= lrRecord.mLast && lrRecord.mLast <= lNow());
            // A repeat of what has been handed out is a record of its own.
            lEvent.deliver();
            const ZTCTestFetch lAgain = arCollection.fetch();
            EXPECT_EQ(lAgain.of(0).at(0).mOccurrences, 1U);
            EXPECT_GE(lAgain.of(0)[0].mFirst, lrRecord.mLast);
        }
    });
}

TEST(Collection, BeginsAnewWithNothingHeldBack) {
    inCollection(2, [](ZTCTestCollection& arCollection) {
        ZTCScopeAgentSystem& lrSystem = arCollection.getSystem();
        const unsigned char lBlock[4]{1};
        const std::pair<std::function<void()>, std::size_t> lRows[] = {
            // what is done between an event and its repeat, the records that there are then
            {[] {}, 1},
            {[&] { lrSystem.clearPrevScopeData(); }, 2},
            {[&] { lrSystem.resetRecordLists(); }, 1},
        };
        for (const auto& [lDo, lRecords] : lRows) {
            lrSystem.setPrevScopeData(0, ZTCScopeData({8, 2}, lBlock, sizeof lBlock));
            lDo();
            ZTTestLink(0).deliver();
            EXPECT_EQ(arCollection.fetch().of(0).size(), lRecords);
        }
    });
}

TEST(Collection, GoesOnWhenTheLibraryTellsOfFewerAdaptersOrMore) {
    inCollection(2, [](ZTCTestCollection& arCollection) {
        setLogCode(sTraceOff);
        const ZTSTestEvent lFirst = ZTTestLink(0);
        const ZTSTestEvent lSecond = ZTTestLink(1);
        ZTCTestCollection::setBoards(1);
        EXPECT_EQ(arCollection.fetch().getCount(), 2U);
        for (const ZTSTestEvent* const lpEvent : {&lSecond, &lSecond, &lFirst, &lSecond}) {
            lpEvent->deliver();  // two that an event of another board files, one that the fetch does
        }
        const ZTCTestFetch lFewer = arCollection.fetch();
        EXPECT_EQ(lFewer.getCount(), 1U);
        EXPECT_EQ(lFewer.getLists().size(), 1U);
        EXPECT_EQ(lFewer.getOccurrences(), 1U);
        EXPECT_EQ(ZTGetStatistic(ZTS_FetchedEvents), 1U);
        ZTCTestCollection::setBoards(3);
        arCollection.fetch();
        const std::string lLog = arCollection.takeLog();
        EXPECT_EQ(ZTTestLostIn(lLog, " of unknown boards"), 3U);
        EXPECT_FALSE(contains(lLog, "-E- "));

        lSecond.deliver();
        ZTTestLink(2).deliver();
        const ZTCTestFetch lMore = arCollection.fetch();
        EXPECT_EQ(lMore.getCount(), 3U);
        EXPECT_EQ(lMore.getLists().size(), 2U);
        EXPECT_EQ(lMore.of(1).size(), 1U);
        EXPECT_TRUE(contains(arCollection.takeLog(),
                             "Bad boardid 2 detected during handle GetScopeDataCommand command\n"));
    });
}
