#include <condition_variable>
#include <map>
#include <mutex>

#include "TestStore.h"
#include "TestSupport.h"
#include "ViewAsk.h"
#include "WebRequest.h"
#include "WebWorkers.h"

namespace {

using namespace std::chrono_literals;
using Clock = ZTCWebWorkers::Clock;

/// Keeps whoever comes until it is opened.
class Gate {
  public:
    ~Gate() { open(); }

    ZTSWebAnswer pass() {
        std::unique_lock lLock(mMutex);
        ++mInside;
        mOpens.wait(lLock, [&] { return mIsOpen; });
        return {};
    }
    void open() {
        const std::lock_guard lLock(mMutex);
        mIsOpen = true;
        mOpens.notify_all();
    }
    std::size_t count() {
        const std::lock_guard lLock(mMutex);
        return mInside;
    }
    bool has(std::size_t aInside) {
        return waitUntil([&] { return count() == aInside; });
    }

  private:
    std::mutex mMutex;
    std::condition_variable mOpens;
    bool mIsOpen = false;
    std::size_t mInside = 0;
};

class WebWorkers : public ::testing::Test {
  protected:
    using Work = ZTCWebWorkers::Work;

    ~WebWorkers() override { mpGate->open(); }

    std::optional<std::string> ask(std::uint64_t aTicket, Work aWork, const std::string& acrPeer = "a",
                                   Clock::duration aTime = 30s) {
        return mWorkers.ask(aTicket, acrPeer, Clock::now() + aTime, std::move(aWork));
    }
    /// The work that waits at the gate; it belongs to threads that may outlive this.
    Work waiting() const {
        return [lpGate = mpGate](ZTCWebHistory& /*arHistory*/) { return lpGate->pass(); };
    }
    unsigned int statusOf(std::uint64_t aTicket) {
        EXPECT_TRUE(waitUntil([&] {
            for (ZTCWebWorkers::Done& lrDone : mWorkers.take()) {
                mStatuses[lrDone.mTicket] = lrDone.mAnswer.mStatus;
            }
            return mStatuses.contains(aTicket);
        }));
        return mStatuses[aTicket];
    }

    const ZTCTestDirectory mDirectory;
    const std::shared_ptr<Gate> mpGate = std::make_shared<Gate>();
    const std::shared_ptr<std::atomic<int>> mpCalls = std::make_shared<std::atomic<int>>(0);
    ZTCWebWorkers mWorkers{mDirectory / "none.db", [lpCalls = mpCalls] { ++*lpCalls; }};
    std::map<std::uint64_t, unsigned int> mStatuses;
};

TEST_F(WebWorkers, WhatIsThrownBecomesAnAnswer) {
    const std::pair<unsigned int, Work> lRows[] = {
        {200, [](ZTCWebHistory&) { return answerJson("{}"); }},
        {400, [](ZTCWebHistory&) -> ZTSWebAnswer { throw ZTCWebRefusal("x"); }},
        {400, [](ZTCWebHistory&) -> ZTSWebAnswer { throw ZTCViewUsage("x"); }},
        {404, [](ZTCWebHistory&) -> ZTSWebAnswer { throw ZTCViewMissing("x"); }},
        {503, [](ZTCWebHistory&) -> ZTSWebAnswer { throw std::bad_alloc(); }},
        {500, [](ZTCWebHistory&) -> ZTSWebAnswer { throw std::runtime_error("x"); }},
        {503, [](ZTCWebHistory& arHistory) { return answerJson(arHistory.getReader().getHost()); }}};
    std::uint64_t lTicket = 0;
    for (const auto& [lStatus, lrWork] : lRows) {
        EXPECT_FALSE(ask(++lTicket, lrWork));
        EXPECT_EQ(statusOf(lTicket), lStatus) << lTicket;
    }
    EXPECT_GE(*mpCalls, static_cast<int>(lTicket));
}

TEST_F(WebWorkers, APeerHasNotAllThreads) {
    for (std::uint64_t lTicket = 1; lTicket <= ZTCWebWorkers::Threads; ++lTicket) {
        EXPECT_FALSE(ask(lTicket, waiting()));
    }
    EXPECT_TRUE(mpGate->has(ZTCWebWorkers::Threads - 1));
    EXPECT_FALSE(ask(
        100, [](ZTCWebHistory&) { return answerJson("{}"); }, "b"));
    EXPECT_EQ(statusOf(100), 200U);
    mpGate->open();
    EXPECT_EQ(statusOf(ZTCWebWorkers::Threads), 200U);
}

TEST_F(WebWorkers, WhoHasManyWaitMakesRoomForWhoHasFew) {
    std::uint64_t lTicket = 0;
    while (lTicket < ZTCWebWorkers::Threads - 1) {
        ask(++lTicket, waiting());
    }
    EXPECT_TRUE(mpGate->has(ZTCWebWorkers::Threads - 1));
    for (std::size_t lWaiting = 0; lWaiting < ZTCWebWorkers::MostWaiting; ++lWaiting) {
        EXPECT_FALSE(ask(++lTicket, waiting()));
    }
    EXPECT_TRUE(ask(1000, waiting()));  // it would not have fewer
    EXPECT_FALSE(ask(1001, waiting(), "b"));
    EXPECT_EQ(statusOf(lTicket), 503U);  // its newest
    EXPECT_EQ(mStatuses.size(), 1U);
}

TEST_F(WebWorkers, WhoIsKeptKeepsNobody) {
    std::uint64_t lTicket = 0;
    EXPECT_TRUE(waitUntil([&] {  // one that is taken too late is not begun
        ask(++lTicket, waiting(), "a", 50ms);
        return mpGate->count() == ZTCWebWorkers::Threads - 1;
    }));
    EXPECT_EQ(mWorkers.countKept(Clock::now() + 1h), ZTCWebWorkers::Threads - 1);
    const auto lIsRefused = [&] { return ask(++lTicket, waiting(), "b", 0ms).has_value(); };
    EXPECT_TRUE(waitUntil(lIsRefused));
    mpGate->open();
    EXPECT_TRUE(waitUntil([&] { return !lIsRefused(); }));
}

TEST_F(WebWorkers, WhatNobodyWaitsForIsNotDone) {
    std::atomic<bool> lIsDone{false};
    EXPECT_FALSE(ask(
        1,
        [&](ZTCWebHistory&) {
            lIsDone = true;
            return ZTSWebAnswer{};
        },
        "a", 0ms));
    EXPECT_FALSE(ask(2, [](ZTCWebHistory&) { return ZTSWebAnswer{}; }));
    EXPECT_EQ(statusOf(2), 200U);
    EXPECT_FALSE(lIsDone);
    EXPECT_EQ(mStatuses.count(1), 0U);
}

TEST_F(WebWorkers, AnEndDoesNotWaitForWhoIsKept) {
    auto lpWorkers = std::make_unique<ZTCWebWorkers>(mDirectory / "none.db", [] {});
    EXPECT_FALSE(lpWorkers->ask(1, "a", Clock::now() + 30s, waiting()));
    EXPECT_TRUE(mpGate->has(1));
    lpWorkers.reset();
}

// ---- The history that each of them has ----

TEST(WebHistory, WhatTakesTooLongEnds) {
    const ZTCTestDirectory lDirectory;
    const std::string lPath = lDirectory / "history.db";
    const ZTCTestStore lStore(lPath);
    ZTCWebHistory lHistory(lPath);
    const auto lCount = [&] {
        return lHistory.getReader()
            .getDatabase()
            .execAndGet(
                "WITH RECURSIVE n(x) AS (SELECT 1 UNION ALL SELECT x + 1 FROM n) SELECT count(*) FROM n")
            .getInt64();
    };
    lHistory.begin(Clock::now() + 50ms);
    EXPECT_THROW(lCount(), SQLite::Exception);
    try {
        lHistory.getReader();
        ADD_FAILURE();
    } catch (const ZTCStoreError& lrError) {
        EXPECT_EQ(lrError.getFault(), ZTEStoreFault::Busy);
    }
    lHistory.begin(Clock::now() + 30s);
    EXPECT_EQ(lHistory.getReader().getHost(), "db7");
}

TEST(WebHistory, AnotherFileInItsPlaceIsTheHistory) {
    const ZTCTestDirectory lDirectory;
    const std::string lPath = lDirectory / "history.db";
    ZTCWebHistory lHistory(lPath);
    lHistory.begin(Clock::now() + 30s);
    EXPECT_THROW(lHistory.getReader(), ZTCStoreError);
    {
        ZTCTestStore lStore(lPath);
        EXPECT_EQ(lHistory.getReader().getHost(), "db7");
    }
    for (const char* const lpEnd : {"", "-wal", "-shm"}) {
        std::filesystem::remove(lPath + lpEnd);
    }
    EXPECT_THROW(lHistory.getReader(), ZTCStoreError);
    ZTCTestStore lStore(lPath);
    lStore.exec("UPDATE meta SET value = 'db8' WHERE name = 'host'");
    EXPECT_EQ(lHistory.getReader().getHost(), "db8");
}

}  // namespace
