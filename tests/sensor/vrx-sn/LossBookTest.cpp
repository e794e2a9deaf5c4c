// The books, as an agent, a store and a clock of the test's have them.
#include <gtest/gtest.h>

#include <functional>
#include <random>
#include <sstream>

#include "FailingAllocator.h"
#include "LossBook.h"

namespace {

constexpr std::int64_t sProcess = 7;

// "held=3 limit=2" as figures; what begins with a + is the library's, +start its begin.
ZTSBookFigures figuresOf(const std::string& acrText) {
    static const std::map<std::string, std::string> sNames{{"held", "held_events"},
                                                           {"fetched", "fetched_events_total"},
                                                           {"recorded", "recorded_events_total"},
                                                           {"ended", "ended_time_ns"},
                                                           {"limit", "lost_total{reason=\"limit\"}"},
                                                           {"memory", "lost_total{reason=\"no_memory\"}"},
                                                           {"full", "lost_total{reason=\"full\"}"},
                                                           {"beyond", "beyond_total{kind=\"queue_full\"}"},
                                                           {"beyond2", "beyond_total{kind=\"lun_reset\"}"}};
    ZTSBookFigures lFigures;
    std::istringstream lText(acrText);
    for (std::string lWord; lText >> lWord;) {
        const bool lIsLibrarys = lWord[0] == '+';
        const std::string lName = lWord.substr(lIsLibrarys ? 1 : 0, lWord.find('=') - (lIsLibrarys ? 1 : 0));
        const std::uint64_t lValue = lName == "old" ? 0 : std::stoull(lWord.substr(lWord.find('=') + 1));
        if (lName == "old") {
            lFigures.mIsAsOfNow = false;
            continue;
        }
        if (lIsLibrarys && !lFigures.mLibrary) {
            lFigures.mLibrary.emplace();
        }
        if (lName == "start") {
            lFigures.mLibraryStart = lValue;
        } else {
            (lIsLibrarys ? *lFigures.mLibrary : lFigures.mAgent).mRows.push_back({sNames.at(lName), lValue});
        }
    }
    return lFigures;
}

// Books, and what they tell, a loss as "agent limit 5 @1-2".
struct Play {
    void at(double aSeconds) { mTime = aSeconds; }
    ZTSMoment now() const {
        const auto lTime = static_cast<ZTNanoseconds>((mTime + mStep) * 1e9);
        return {lTime, ZTCWaitEnd::Clock::time_point(
                           std::chrono::nanoseconds(static_cast<std::int64_t>(mTime * 1e9)))};
    }
    void start(const std::optional<ZTSAgentRun>& acrRun = {}, const char* apSetAside = "") {
        ZTSStoreStart lStart;
        lStart.mAgent = acrRun;
        lStart.mSetAside = apSetAside;
        lStart.mSetAsideMade = 3 * ZTSecond;
        mBook.setStart(lStart, now());
    }
    void begin(const char* apFigures, int aStart = 1) {
        const ZTSBookFigures lFigures = figuresOf(apFigures != nullptr ? apFigures : "");
        mBook.begin(aStart * ZTSecond, sProcess, apFigures != nullptr ? &lFigures : nullptr, now());
    }
    void look(const char* apFigures, bool aIsFetchOpen = false) {
        const ZTSBookFigures lFigures = figuresOf(apFigures != nullptr ? apFigures : "");
        mBook.look(apFigures != nullptr ? &lFigures : nullptr, aIsFetchOpen, now());
    }
    void end(const char* apFigures) {
        const ZTSBookFigures lFigures = figuresOf(apFigures != nullptr ? apFigures : "");
        mBook.end(apFigures != nullptr ? &lFigures : nullptr, now());
    }
    std::string told() {
        std::ostringstream lTold;
        const ZTSBookNews lNews = mBook.takeNews();
        for (const ZTSLoss& lrLoss : lNews.mLosses) {
            EXPECT_LE(lrLoss.mFirst, lrLoss.mLast);
            lTold << lrLoss.mSource << " " << lrLoss.mReason << " "
                  << (lrLoss.mEvents ? std::to_string(*lrLoss.mEvents) : "?")
                  << (lrLoss.mAtMost ? "<=" + std::to_string(*lrLoss.mAtMost) : "") << " @"
                  << static_cast<double>(lrLoss.mFirst) / 1e9 << "-"
                  << static_cast<double>(lrLoss.mLast) / 1e9 << "\n";
        }
        for (const ZTSChange& lrChange : lNews.mChanges) {
            lTold << lrChange.mEvent << (lrChange.mAfter.empty() ? "" : " " + lrChange.mAfter) << "\n";
        }
        return lTold.str();
    }

    ZTCLossBook mBook;
    double mTime = 10;
    double mStep = 0;  // by which the host's clock was set
};

// As the store has a run, seen last at 5 s.
ZTSAgentRun storedRun(std::uint64_t aTaken, std::map<std::string, std::uint64_t> aTold = {}, int aStart = 1) {
    ZTSAgentRun lRun;
    lRun.mStart = aStart * ZTSecond;
    lRun.mProcess = sProcess;
    lRun.mCame = 2 * ZTSecond;
    lRun.mSeen = 5 * ZTSecond;
    lRun.mTaken = aTaken;
    lRun.mFigures["fetched_events_total"] = aTaken;
    lRun.mTold = std::move(aTold);
    return lRun;
}

TEST(LossBook, TellsEachLossOnce) {
    const char* const lpLimit = "agent/lost_total{reason=\"limit\"}";
    const struct {
        const char* mpName;
        std::function<void(Play&)> mPlay;
        const char* mpTold;
    } lRows[] = {
        {"growth, once a second",
         [](Play& arPlay) {
             arPlay.start(), arPlay.begin("limit=0 memory=0");
             arPlay.at(11), arPlay.look("limit=5 memory=0");
             arPlay.at(11.5), arPlay.look("limit=7 memory=0");
             arPlay.at(12.5), arPlay.look("limit=8 memory=1");
             arPlay.at(20), arPlay.look("limit=8 memory=1");
         },
         "agent limit 5 @10-11\nagent limit 3 @11-12.5\nagent no_memory 1 @11.5-12.5\ncame\n"},
        {"the end tells what is not due",
         [](Play& arPlay) {
             arPlay.start(), arPlay.begin("limit=0");
             arPlay.at(11), arPlay.look("limit=1");
             arPlay.at(11.1), arPlay.look("limit=3"), arPlay.mBook.settle(false, arPlay.now());
         },
         "agent limit 1 @10-11\nagent limit 2 @11-11.1\ncame\n"},
        {"a new agent that others have fetched from",
         [](Play& arPlay) { arPlay.start(), arPlay.begin("fetched=9 limit=4"); },
         "agent limit 4 @1-10\nsensor unstored 9 @1-10\ncame\n"},
        {"the run that is stored",
         [=](Play& arPlay) {
             arPlay.start(storedRun(10, {{lpLimit, 3}})), arPlay.begin("fetched=14 limit=4");
             arPlay.at(11), arPlay.mBook.take(6, arPlay.now()), arPlay.look("fetched=20 limit=4");
         },
         "agent limit 1 @5-10\nsensor unstored 4 @5-10\n"},
        {"the same, the store opens late",
         [=](Play& arPlay) {
             arPlay.begin("fetched=14 limit=4");
             arPlay.at(11), arPlay.mBook.take(6, arPlay.now()), arPlay.look("fetched=20 limit=6");
             arPlay.at(40), arPlay.start(storedRun(10, {{lpLimit, 3}}));
         },
         "agent limit 2 @10-11\nagent limit 1 @5-10\nsensor unstored 4 @5-10\n"},
        {"it opens behind two agents",
         [=](Play& arPlay) {
             arPlay.begin("fetched=14 limit=4");
             arPlay.at(11), arPlay.end("fetched=14 limit=4 held=2 ended=1");
             arPlay.at(12), arPlay.begin("fetched=1", 12);
             arPlay.at(40), arPlay.start(storedRun(14, {{lpLimit, 4}}));
         },
         "agent ended 2 @1-11\nsensor unstored 1 @12-12\nwent ended\ncame\n"},
        {"the run that is stored, by figures older than that",
         [=](Play& arPlay) {
             arPlay.start(storedRun(200, {{lpLimit, 7}})), arPlay.begin("old fetched=100 limit=5");
             arPlay.look("old fetched=100 limit=5");
             arPlay.at(12), arPlay.look("old fetched=200 limit=7");
             arPlay.at(14), arPlay.look("old fetched=203 limit=8");
         },
         "agent limit 1 @12-14\nsensor unstored 3 @12-14\n"},
        {"the same, the store opens late",
         [](Play& arPlay) {
             arPlay.begin("old fetched=100"), arPlay.mBook.take(6, arPlay.now());
             arPlay.at(12), arPlay.look("old fetched=206");
             arPlay.at(14), arPlay.start(storedRun(200)), arPlay.look("old fetched=206");
         },
         ""},
        {"it was killed while nobody looked",
         [](Play& arPlay) {
             arPlay.at(3600), arPlay.start(storedRun(200));
             arPlay.begin("fetched=200 held=50"), arPlay.end("fetched=200 held=50");
         },
         "agent killed ?<=50 @5-3600\nwent killed\n"},
        {"another one is stored",
         [](Play& arPlay) { arPlay.start(storedRun(10, {}, 2)), arPlay.begin("fetched=0"); },
         "agent unseen ? @5-10\nwent\ncame\n"},
        {"one is stored, none is there",
         [](Play& arPlay) {
             arPlay.mBook.seeNone(arPlay.now()), arPlay.start(storedRun(10));
             arPlay.at(11), arPlay.mBook.seeNone(arPlay.now()), arPlay.mBook.seeNone(arPlay.now());
         },
         "agent unseen ? @5-11\nwent\n"},
        {"the store was damaged", [](Play& arPlay) { arPlay.begin("fetched=9"), arPlay.start({}, "there"); },
         "sensor store ? @3-10\nsensor store 9 @1-10\ncame\n"},
        {"an end in order",
         [](Play& arPlay) {
             arPlay.start(), arPlay.begin("fetched=0");
             arPlay.at(11), arPlay.mBook.take(6, arPlay.now()), arPlay.look("fetched=6 held=0");
             arPlay.at(12), arPlay.mBook.loseAnswer(), arPlay.end("fetched=8 held=3 recorded=11 ended=1");
         },
         "agent ended 3 @11-12\nsensor answer 2 @11-12\ncame\nwent ended\n"},
        {"a kill",
         [](Play& arPlay) {
             arPlay.start(), arPlay.begin("fetched=0");
             arPlay.at(12), arPlay.end("fetched=8 held=3 recorded=11");
         },
         "agent killed ?<=11 @1-12\ncame\nwent killed\n"},
        {"a kill inside a fetch",
         [](Play& arPlay) {
             arPlay.start(), arPlay.begin("fetched=0"), arPlay.end("fetched=0 held=0 recorded=11");
         },
         "agent killed ?<=11 @1-10\ncame\nwent killed\n"},
        {"a kill at rest",
         [](Play& arPlay) { arPlay.start(), arPlay.begin("fetched=0"), arPlay.end("fetched=0 held=0"); },
         "came\nwent killed\n"},
        {"a kill, the figures were on a disk",
         [](Play& arPlay) { arPlay.start(), arPlay.begin("old fetched=0"), arPlay.end("old fetched=0"); },
         "agent killed ? @1-10\ncame\nwent killed\n"},
        {"an answer that is on its way is not lost",
         [](Play& arPlay) {
             arPlay.start(), arPlay.begin("fetched=0"), arPlay.look("fetched=5", true);
             arPlay.at(12), arPlay.mBook.take(5, arPlay.now()), arPlay.look("fetched=5");
         },
         "came\n"},
        {"a lost one, and what others fetched",
         [](Play& arPlay) {
             arPlay.start(), arPlay.begin("fetched=0");
             arPlay.mBook.loseAnswer(), arPlay.look("fetched=5");
             arPlay.at(12), arPlay.look("fetched=7");
         },
         "sensor answer 5 @10-10\nsensor unstored 2 @10-12\ncame\n"},
        {"a lost one, the figures are behind",
         [](Play& arPlay) {
             arPlay.start(), arPlay.begin("old fetched=0");
             arPlay.mBook.loseAnswer(), arPlay.look("old fetched=0");
             arPlay.at(12), arPlay.look("old fetched=5");
         },
         "sensor answer 5 @10-12\ncame\n"},
        {"no figures",
         [](Play& arPlay) {
             arPlay.start(), arPlay.begin(nullptr), arPlay.mBook.loseAnswer(), arPlay.look(nullptr);
             arPlay.at(12), arPlay.look(nullptr), arPlay.end(nullptr);
         },
         "sensor answer ? @10-10\nagent unseen ? @1-12\ncame\nwent unknown\n"},
        {"no figures, behind one that had some",
         [](Play& arPlay) {
             arPlay.start(), arPlay.begin("fetched=0"), arPlay.end("fetched=0 ended=1");
             arPlay.begin(nullptr, 10), arPlay.mBook.loseAnswer(), arPlay.look(nullptr);
             arPlay.at(12), arPlay.end(nullptr);
         },
         "sensor answer ? @10-10\nagent unseen ? @10-12\ncame\nwent ended\ncame\nwent unknown\n"},
        {"the library comes, goes and begins anew",
         [](Play& arPlay) {
             arPlay.start(), arPlay.begin("limit=0");
             arPlay.at(11), arPlay.look("limit=0 +start=1 +full=2 +beyond=3 +beyond2=4");
             arPlay.at(13), arPlay.look("limit=0");
             arPlay.at(14), arPlay.look("limit=0 +start=2 +full=3 +beyond=0 +beyond2=4");
             arPlay.at(16), arPlay.look("limit=0 +start=2 +full=1 +beyond=0 +beyond2=4");
         },
         "library beyond 7 @10-11\nlibrary full 2 @10-11\nlibrary beyond 4 @13-14\nlibrary full 3 @13-14\n"
         "library full 1 @14-16\ncame\n"},
        {"the library is another one than is stored",
         [](Play& arPlay) {
             arPlay.start(
                 storedRun(0, {{"library/start_time_ns", 1}, {"library/lost_total{reason=\"full\"}", 2}}));
             arPlay.begin("fetched=0 +start=9 +full=3");
         },
         "library full 3 @5-10\n"},
        {"the clock is set back",
         [](Play& arPlay) {
             arPlay.start(), arPlay.begin("limit=0"), arPlay.mStep = -5;
             arPlay.at(11), arPlay.look("limit=5");
         },
         "agent limit 5 @6-6\ncame\n"},
    };
    for (const auto& lrRow : lRows) {
        SCOPED_TRACE(lrRow.mpName);
        Play lPlay;
        lrRow.mPlay(lPlay);
        EXPECT_EQ(lPlay.told(), lrRow.mpTold);
    }
}

// Whatever cannot be had, an end that is told again tells all once; the store's start is one of the steps.
TEST(LossBook, TellsOnceWhereMemoryIsShort) {
    const ZTSBookFigures lBegun = figuresOf("fetched=9 limit=0");
    const ZTSBookFigures lEnded = figuresOf("fetched=9 held=5 ended=9 limit=3");
    ZTSStoreStart lStart;
    lStart.mAgent = storedRun(9);
    bool lHasFailed = true;
    for (unsigned int lFailing = 1; lHasFailed; ++lFailing) {
        SCOPED_TRACE(lFailing);
        Play lPlay;
        lHasFailed = false;
        const auto lInSpite = [&](const std::function<void()>& acrStep) {
            FailingAllocator lAllocator(lFailing);
            try {
                return acrStep();
            } catch (const std::bad_alloc&) {
                lHasFailed = true;
            }
            lAllocator.stop();
            acrStep();
        };
        lInSpite([&] { lPlay.mBook.begin(ZTSecond, sProcess, &lBegun, lPlay.now()); });
        lInSpite([&] { lPlay.mBook.setStart(lStart, lPlay.now()); });
        lPlay.at(11);
        lInSpite([&] { lPlay.mBook.end(&lEnded, lPlay.now()); });
        lPlay.mBook.setStart(lStart, lPlay.now());
        lPlay.mBook.seeNone(lPlay.now());
        EXPECT_EQ(lPlay.told(), "agent ended 5 @5-11\nagent limit 3 @10-11\nwent ended\n");
    }
}

// An agent that counts, a sensor that is killed wherever it happens to be, and a store that has whole
// batches.
TEST(LossBook, WhatWasSentIsInTheStoreOrTold) {
    std::mt19937 lRandom(1);
    const auto lOneOf = [&](unsigned int aCount) { return static_cast<unsigned int>(lRandom() % aCount); };
    std::uint64_t lSent = 0, lHeld = 0, lFetched = 0, lRecorded = 0, lLimit = 0;
    int lStart = 1;
    struct Batch {
        std::uint64_t mEvents = 0;
        std::optional<ZTSAgentRun> mRun;
    };
    Batch lStore, lWaiting;
    Play lPlay;
    bool lIsOpen = false;
    const auto lNames = [&](const char* apMore = "") {
        return "held=" + std::to_string(lHeld) + " fetched=" + std::to_string(lFetched) +
               " recorded=" + std::to_string(lRecorded) + " limit=" + std::to_string(lLimit) + apMore;
    };
    const auto lTell = [&] {
        const ZTSBookNews lNews = lPlay.mBook.takeNews();
        for (const ZTSLoss& lrLoss : lNews.mLosses) {
            EXPECT_TRUE(lrLoss.mEvents.has_value());
            lWaiting.mEvents += lrLoss.mEvents.value_or(0);
        }
        lWaiting.mRun = lNews.mRuns.empty() ? lWaiting.mRun : lNews.mRuns.back();
    };
    const auto lCommit = [&] {
        if (!lIsOpen) {
            lPlay.start(lStore.mRun);
            lIsOpen = true;
            lTell();
        }
        lStore.mEvents += std::exchange(lWaiting.mEvents, 0);
        lStore.mRun = lWaiting.mRun ? std::exchange(lWaiting.mRun, {}) : lStore.mRun;
    };
    lPlay.begin(lNames().c_str(), lStart);
    for (unsigned int lStep = 0; lStep < 50000; ++lStep) {
        lPlay.mTime += 0.3;
        const unsigned int lWhat = lOneOf(100);
        if (lWhat < 40) {
            const auto lCount = lOneOf(10);
            lSent += lCount, lRecorded += lCount, lHeld += lCount;
        } else if (lWhat < 45) {
            ++lSent, ++lLimit;
        } else if (lWhat < 70) {
            const std::uint64_t lAnswer = std::exchange(lHeld, 0);
            lFetched += lAnswer;
            if (lWhat == 69) {
                lPlay.mBook.loseAnswer();
            } else if (lWhat != 68) {  // else somebody else has it
                lPlay.mBook.take(lAnswer, lPlay.now());
                lWaiting.mEvents += lAnswer;
                lWaiting.mRun = lPlay.mBook.getRun();
            }
            lPlay.look(lNames().c_str());
            lTell();
        } else if (lWhat < 90) {
            lCommit();
        } else if (lWhat < 97) {  // the sensor is killed
            lPlay.mBook = ZTCLossBook();
            lWaiting = {};
            lIsOpen = false;
            lPlay.begin(lNames().c_str(), lStart);
        } else {  // the agent ends, and the next one comes
            lPlay.end(lNames(" ended=1").c_str());
            lTell();
            lCommit();
            lHeld = lFetched = lRecorded = lLimit = 0;
            lPlay.begin(lNames().c_str(), ++lStart);
        }
    }
    lPlay.end(lNames(" ended=1").c_str());
    lTell();
    lCommit();
    EXPECT_EQ(lStore.mEvents, lSent);
}

}  // namespace
