#include <algorithm>
#include <numeric>

#include "System.h"
#include "TestSupport.h"

namespace {

class Number : public ZTCQueueable {
  public:
    explicit Number(unsigned int aValue) : mValue(aValue) {}
    unsigned int mValue;
};

ZTCSystem::Queueable numbered(unsigned int aValue) {
    return {new Number(aValue), ZTPST_Individual, ZTPMT_New};
}

unsigned int valueOf(const ZTCSystem::Queueable& acrElement) {
    return dynamic_cast<const Number&>(*acrElement).mValue;
}

// Blocks until it is cancelled.
class BlockedReader : public ZTCReader {
  public:
    void read(void* /*apBytes*/, unsigned int /*aLength*/) override {}
    bool waitForActivity(const ZTCActivityWait& /*acrWait*/) override {
        mIsInside = true;
        mIsCancelled.wait(false);
        return false;
    }
    void cancel() override {
        mIsCancelled = true;
        mIsCancelled.notify_all();
    }
    std::atomic<bool> mIsInside{false};
    std::atomic<bool> mIsCancelled{false};
};

class TestSystem : public ZTCSystem {
  public:
    TestSystem() : ZTCSystem(ZTCString("test")) {
        mConditionals.append(makePointer<ZTCConditional>());
        addQueue();
        addList();
        addList();
    }
    using ZTCSystem::mReaders;

    void add(ZTCThreadComponent::Procedure aProcedure, const char* apName) {
        mThreadComponents.append(ZTCPointer<ZTCThreadComponent>(
            new ZTCThreadComponent(aProcedure, ZTCString(apName), this), ZTPST_Individual, ZTPMT_New));
    }

    // Called by the procedures below when they run.
    std::atomic<unsigned int> mRuns{0};
    std::atomic<unsigned int> mEnds{0};
};

// What a thread may be blocked in, each until makeThreadsToExit.
void* untilExit(void* apBlock, void (*apWait)(TestSystem&)) {
    auto& lrSystem = static_cast<TestSystem&>(*static_cast<ZTCSystemInterface**>(apBlock)[1]);
    ++lrSystem.mRuns;
    while (!static_cast<ZTCThreadComponent**>(apBlock)[0]->isSetForExit()) {
        apWait(lrSystem);
    }
    ++lrSystem.mEnds;
    return nullptr;
}

}  // namespace

TEST(System, HandsOutEachNumericIdOnce) {
    TestSystem lSystem;
    std::vector<unsigned int> lIds(4000);
    inThreads(4, [&](unsigned int aThread) {
        for (unsigned int lAt = 0; lAt < 1000; ++lAt) {
            lSystem.generateNumericId(lIds[aThread * 1000 + lAt]);
        }
    });
    std::sort(lIds.begin(), lIds.end());
    EXPECT_EQ(std::adjacent_find(lIds.begin(), lIds.end()), lIds.end());
    lSystem.returnNumericId(lIds[17]);
    EXPECT_THROW(lSystem.returnNumericId(lIds[17]), ZTCInvalidEx);
    unsigned int lAgain = 0;
    lSystem.generateNumericId(lAgain);
    EXPECT_EQ(lAgain, lIds[17]);
}

TEST(System, GivesEveryElementOfAQueueToOneTaker) {
    constexpr unsigned int lEach = ZTIsSanitized ? 2000 : 20000;
    TestSystem lSystem;
    std::vector<unsigned int> lTaken[2];
    std::vector<std::thread> lTakers;
    for (auto& lrTaken : lTaken) {
        lTakers.emplace_back([&] {
            for (;;) {
                lSystem.waitOnEmptyQueue(0, 60);
                if (lSystem.isSetForExit() && lSystem.isQueueEmpty(0)) {
                    return;
                }
                try {
                    lrTaken.push_back(valueOf(lSystem.dequeue(0)));
                } catch (const ZTCNotFoundEx&) {
                    continue;  // the other was faster
                }
            }
        });
    }
    inThreads(4, [&](unsigned int aThread) {
        for (unsigned int lAt = 0; lAt < lEach; ++lAt) {
            lSystem.enqueue(0, numbered(lAt * 4 + aThread));
        }
    });
    lSystem.makeThreadsToExit();
    std::vector<unsigned int> lAll;
    for (unsigned int lTaker = 0; lTaker < 2; ++lTaker) {
        lTakers[lTaker].join();
        lAll.insert(lAll.end(), lTaken[lTaker].begin(), lTaken[lTaker].end());
    }
    std::sort(lAll.begin(), lAll.end());
    std::vector<unsigned int> lExpected(4 * lEach);
    std::iota(lExpected.begin(), lExpected.end(), 0);
    EXPECT_EQ(lAll, lExpected);
}

TEST(System, TakesFromTheEndOfAListThatItIsAskedFor) {
    TestSystem lSystem;
    for (const unsigned int lValue : {3U, 4U, 5U}) {
        lSystem.enlist(1, numbered(lValue));
        lSystem.enlistFront(1, numbered(10 - lValue));
    }
    auto lAt = lSystem.listBegin(1);  // 5 6 7 3 4 5
    lSystem.listErase(1, ++lAt);
    EXPECT_EQ(valueOf(*lAt), 7U);
    EXPECT_EQ(valueOf(lSystem.delist(1)), 5U);
    EXPECT_EQ(valueOf(lSystem.listFront(1)), 7U);
    EXPECT_EQ(valueOf(lSystem.delistBack(1)), 5U);
    EXPECT_EQ(std::distance(lSystem.listBegin(1), lSystem.listEnd(1)), 3);
    lSystem.listClear(1);
    EXPECT_EQ(lSystem.listSize(1), 0U);
    EXPECT_THROW(lSystem.delist(1), ZTCNotFoundEx);
    EXPECT_THROW(lSystem.listFront(1), ZTCNotFoundEx);
}

TEST(System, SaysThatAnIdIsNotThere) {
    TestSystem lSystem;
    EXPECT_THROW(lSystem.enqueue(1, numbered(0)), ZTCInvalidEx);
    EXPECT_THROW(lSystem.listBegin(2), ZTCInvalidEx);
    EXPECT_THROW(lSystem.timedWait(1, 0), ZTCInvalidEx);
    EXPECT_THROW(lSystem.startThread(0), ZTCInvalidEx);
    const auto lAsserts = ::testing::ExitedWithCode(1);
    EXPECT_EXIT(lSystem.getReader(0), lAsserts, " getReader: Assertion \\[ acReaderNo < ");
    EXPECT_EXIT(lSystem.getWriter(0), lAsserts, " getWriter: Assertion \\[ acWriterNo < ");
}

TEST(System, EndsATimedWaitInTime) {
    const ZTCTestPeriod lSecond(ZTP_Second);
    TestSystem lSystem;
    for (const unsigned int lSeconds : {0U, 1U}) {
        const std::function<void()> lWaits[] = {[&] { lSystem.waitOnEmptyList(0, lSeconds); },
                                                [&] { lSystem.timedWait(0, lSeconds); }};
        const auto lStart = std::chrono::steady_clock::now();
        inThreads(2, [&](unsigned int aWait) {
            EXPECT_THROW(lWaits[aWait](), ZTCTimeOutEx);
            EXPECT_GE(std::chrono::steady_clock::now() - lStart, lSeconds * ZTPeriod(ZTP_Second));
        });
    }
    lSystem.enqueue(0, numbered(1));
    lSystem.waitOnEmptyQueue(0, 0);
}

TEST(System, WakesWhoeverWaitsByWhatItWaitsFor) {
    using Act = void (*)(TestSystem&);
    const Act lSignal = [](TestSystem& arSystem) { arSystem.signal(0); };
    const std::pair<Act, Act> lRows[] = {
        {[](TestSystem& arSystem) { arSystem.wait(0); }, lSignal},
        {[](TestSystem& arSystem) { arSystem.timedWait(0, 600); }, lSignal},
        {[](TestSystem& arSystem) { arSystem.waitOnEmptyQueue(0, 600); },
         [](TestSystem& arSystem) { arSystem.enqueue(0, numbered(1)); }},
    };
    for (const auto& [lpWait, lpWake] : lRows) {
        TestSystem lSystem;
        std::atomic<bool> lIsWoken{false};
        std::thread lWaiter([&, lpGiven = lpWait] {
            lpGiven(lSystem);
            lIsWoken = true;
        });
        EXPECT_TRUE(waitUntil([&, lpGiven = lpWake, lPolls = 0]() mutable {
            if (++lPolls % 20 == 0) {  // the first time when it has long been waiting
                lpGiven(lSystem);
            }
            return lIsWoken.load();
        }));
        lSystem.makeThreadsToExit();
        lWaiter.join();
    }
}

TEST(System, RunsItsThreadsUntilTheyAreMadeToExit) {
    for (int lTry = 0; lTry < 50; ++lTry) {
        TestSystem lSystem;
        auto* const lpReader = new BlockedReader;
        lSystem.mReaders.append(ZTCPointer<ZTCReader>(lpReader, ZTPST_Individual, ZTPMT_New));
        lSystem.add([](void* ap) { return untilExit(ap, [](TestSystem& ar) { ar.wait(0); }); }, "wait");
        lSystem.add([](void* ap) { return untilExit(ap, [](TestSystem& ar) { ar.timedWait(0, 600); }); },
                    "a name longer than a thread can have");
        lSystem.add(
            [](void* ap) { return untilExit(ap, [](TestSystem& ar) { ar.waitOnEmptyQueue(0, 600); }); },
            "queue");
        lSystem.add(
            [](void* ap) { return untilExit(ap, [](TestSystem& ar) { ar.waitForActivity(0, 600); }); },
            "reader");
        lSystem.createThreads();
        EXPECT_FALSE(lSystem.isInited(0));
        EXPECT_EQ(lSystem.mRuns, 0U);
        lSystem.startThreads();
        EXPECT_TRUE(lSystem.isInited(3));
        if (lTry % 2 == 0) {
            ASSERT_TRUE(waitUntil([&] { return lSystem.mRuns == 4 && lpReader->mIsInside; }));
        }
        std::thread lOther([&] { lSystem.makeThreadsToExit(); });
        lSystem.makeThreadsToExit();
        lOther.join();
        lSystem.waitForThreads();
        EXPECT_EQ(lSystem.mEnds, lSystem.mRuns);
        EXPECT_TRUE(lSystem.isSetForExit());
        lSystem.wait(0);  // now returns at once
        lSystem.timedWait(0, 600);
        lSystem.waitForActivity(0, 600);
        lSystem.destroyThreads();
    }
}

TEST(System, TellsAThreadThatEndedAbnormallyAndEndsTheOthers) {
    const ZTSTestEnd lEnd = runChild([] {
        TestSystem lSystem;
        lSystem.add([](void* ap) { return untilExit(ap, [](TestSystem& ar) { ar.wait(0); }); }, "waits");
        lSystem.add([](void*) -> void* { throw ZTCInvalidEx("no good", 6); }, "throws");
        lSystem.createThreads();
        lSystem.startThreads();
        lSystem.waitForThreads();
        EXPECT_TRUE(lSystem.isSetForExit());
        EXPECT_EQ(lSystem.mEnds, lSystem.mRuns);
    });
    EXPECT_EQ(lEnd.mStatus, 0) << lEnd.mOut;
    EXPECT_TRUE(contains(lEnd.mErr, " -A- ")) << lEnd.mErr;
    EXPECT_TRUE(contains(lEnd.mErr, ": Thread throws ended abnormally: no good\n")) << lEnd.mErr;
}
