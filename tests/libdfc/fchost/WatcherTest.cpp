// What is told as an event: each change once.
#include "FailingAllocator.h"
#include "TestSupport.h"
#include "Watcher.h"

namespace {

ZTSFcHost hostOf(std::uint64_t aPort, std::uint64_t aIdentity = 1, const std::string& acrState = "Online") {
    return {aIdentity, acrState, {}, aPort != 0 ? std::optional(aPort) : std::nullopt, {}, {}, {}};
}

// A watcher with its hosts, of which most have to do with host 3, and a clock.
struct ZTSFcTestWatch {
    explicit ZTSFcTestWatch(const ZTFcHosts& acrHosts = {{3, hostOf(1)}})
        : mHosts(acrHosts), mWatcher(acrHosts, std::chrono::seconds(2)) {}

    std::string takeEvents() {
        constexpr const char* lKinds[] = {"link ", "rscn ", "arrival ", "error "};
        std::string lText;
        for (const ZTSFcEvent& lrEvent : std::exchange(mEvents, {})) {
            lText += (lText.empty() ? "" : ", ") + (lKinds[lrEvent.mKind] + std::to_string(lrEvent.mBoard)) +
                     (lrEvent.mPage != 0 ? " " + std::to_string(lrEvent.mPage) : "");
        }
        return lText;
    }
    std::string look() {
        mWatcher.look(mHosts, mNow, mEvents);
        return takeEvents();
    }
    std::string announce(std::uint32_t aCode, std::uint16_t aHost = 3,
                         std::optional<std::uint32_t> aData = 0) {
        const auto* const lpData = reinterpret_cast<const unsigned char*>(aData ? &*aData : nullptr);
        mWatcher.announce({aHost, mNumber++, aCode, {lpData, aData ? sizeof *aData : 0}}, mNow, mEvents);
        return takeEvents();
    }

    ZTFcHosts mHosts;
    ZTCFcWatcher mWatcher;
    ZTCFcWatcher::Time mNow{};
    ZTFcEvents mEvents;
    std::uint32_t mNumber = 1;
};

TEST(FcWatcher, Announcements) {
    ZTSFcTestWatch lWatch({{3, hostOf(1)}, {7, hostOf(2)}});
    const std::map<std::uint32_t, std::string> lKinds = {
        {1, "link 1"},        {2, "link 1"}, {3, "link 1"},     {4, "link 1"},     {5, "rscn 1 9"},
        {0x103, "arrival 1"}, {0x200, ""},   {0x201, "link 1"}, {0x202, "link 1"}, {0x204, ""},
        {0x500, ""},          {0x501, ""},   {0x502, ""},       {0xffff, ""},      {0, ""}};
    std::map<std::uint32_t, std::uint64_t> lWithoutKind;
    for (const auto& [lCode, lrKind] : lKinds) {
        EXPECT_EQ(lWatch.announce(lCode, 7, 9), lrKind) << lCode;
        EXPECT_EQ(lWatch.announce(lCode, 8, 9), "") << lCode;  // no such host
        if (lrKind.empty()) {
            lWithoutKind[lCode] = 2;
        }
    }
    const auto lCounts = lWatch.mWatcher.takeCounts();
    EXPECT_EQ(lCounts.mWithoutKind, lWithoutKind);
    EXPECT_EQ(lCounts.mOfUnknownHosts, lKinds.size() - lWithoutKind.size());
    EXPECT_EQ(lWatch.announce(ZTFCC_Rscn, 7, {}), "");  // it names no page
    EXPECT_EQ(lWatch.mWatcher.takeCounts().mWithoutKind, decltype(lWithoutKind)({{ZTFCC_Rscn, 1}}));
}

TEST(FcWatcher, StatesAnnouncedAndNot) {
    // The state "+" is an announcement, "!" a loss.
    const std::tuple<int, const char*, const char*> sSteps[] = {
        {0, "", ""},           {3, "Linkdown", "link 0"},   {4, "Linkdown", ""},
        {5, "+", "link 0"},    {6, "Offline", ""},          {7, "Online", "link 0"},
        {10, "+", "link 0"},   {11, "+", "link 0"},         {2011, "Offline", ""},
        {3000, "+", "link 0"}, {5001, "Online", "link 0"},  {6000, "+", "link 0"},
        {6001, "!", ""},       {6002, "Offline", "link 0"}, {9000, "!", ""},
        {9001, "+", "link 0"}, {9002, "Online", "link 0"},  {9003, "Offline", "link 0"}};
    ZTSFcTestWatch lWatch;
    for (const auto& [lAt, lpState, lpEvents] : sSteps) {
        lWatch.mNow = ZTCFcWatcher::Time() + std::chrono::milliseconds(lAt);
        if (*lpState == '+') {
            EXPECT_EQ(lWatch.announce(ZTFCC_LipReset), lpEvents) << lAt;
        } else if (*lpState == '!') {
            lWatch.mWatcher.noteLoss();
        } else {
            lWatch.mHosts[3].mState = lpState;
            EXPECT_EQ(lWatch.look(), lpEvents) << lAt;
        }
    }
}

TEST(FcWatcher, RemotePorts) {
    ZTSFcTestWatch lWatch;
    const auto lLook = [&](const std::map<std::string, ZTSFcRemotePort>& acrPorts) {
        lWatch.mHosts[3].mRemotePorts = acrPorts;
        return lWatch.look();
    };
    EXPECT_EQ(lLook({{"a", {5, "Online"}}}), "rscn 0 5");
    EXPECT_EQ(lLook({{"a", {5, "Blocked"}}}), "rscn 0 5");
    EXPECT_EQ(lLook({{"a", {6, "Blocked"}}}), "rscn 0 6");
    EXPECT_EQ(lLook({{"a", {{}, ""}}}), "");
    EXPECT_EQ(lLook({{"a", {6, "Blocked"}}, {"b", {{}, ""}}}), "");
    EXPECT_EQ(lLook({{"a", {6, "Blocked"}}, {"b", {7, "Online"}}}), "rscn 0 7");  // its files came late
    EXPECT_EQ(lLook({{"a", {{}, "Online"}}, {"b", {7, "Blocked"}}}), "rscn 0 6, rscn 0 7");
    EXPECT_EQ(lLook({{"c", {8, ""}}}), "rscn 0 6, rscn 0 7, rscn 0 8");
    EXPECT_EQ(lWatch.announce(ZTFCC_Rscn, 3, 9), "rscn 0 9");
    EXPECT_EQ(lLook({{"c", {1, "Online"}}, {"d", {2, "Online"}}}), "");  // the driver tells
    EXPECT_EQ(lLook({{"d", {2, "Blocked"}}}), "");
    lWatch.mWatcher.noteLoss();
    EXPECT_EQ(lLook({{"d", {2, "Online"}}}), "rscn 0 2");  // but it may be that nobody heard it
    EXPECT_EQ(lLook({}), "");
    lWatch.mHosts = {{3, hostOf(1, 2)}};  // made anew: maybe by another driver
    EXPECT_EQ(lLook({{"e", {4, "Online"}}}), "link 0, arrival 0");
    EXPECT_EQ(lLook({{"e", {4, "Blocked"}}}), "rscn 0 4");
    lWatch.mHosts.clear();
    EXPECT_EQ(lWatch.look(), "link 0, rscn 0 4");
}

TEST(FcWatcher, Counters) {
    constexpr std::optional<std::uint64_t> sNone;
    const std::tuple<std::optional<std::uint64_t>, std::optional<std::uint64_t>, const char*> sSteps[] = {
        {5, sNone, ""},   {6, 100, "error 0"},     {sNone, 100, ""},
        {6, 100, ""},     {sNone, 101, "error 0"}, {7, 102, "error 0"},
        {0, 0, ""},       {1, 0, "error 0"},       {UINT64_MAX - 1, 0, "error 0"},
        {0, 1, "error 0"}};
    ZTSFcTestWatch lWatch;
    for (const auto& [lFirst, lLast, lpEvents] : sSteps) {
        lWatch.mHosts[3].mCounters.front() = lFirst;
        lWatch.mHosts[3].mCounters.back() = lLast;
        EXPECT_EQ(lWatch.look(), lpEvents);
    }
}

TEST(FcWatcher, HostsComeAndGo) {
    ZTSFcTestWatch lWatch({{3, hostOf(1)}, {7, hostOf(2)}});
    const std::pair<ZTFcHosts, std::string> lSteps[] = {
        {{{7, hostOf(2)}}, "link 0"},
        {{{7, hostOf(2)}, {9, hostOf(1)}}, "arrival 0"},  // the same port, another number
        {{{3, hostOf(3)}, {7, hostOf(2)}, {9, hostOf(1)}}, "arrival 2"},
        {{{3, hostOf(3)}, {7, hostOf(4, 2)}, {9, hostOf(1, 2, "Linkdown")}},
         "link 0, link 1, arrival 3, arrival 0"},
        {{{8, hostOf(2)}, {9, hostOf(1, 2, "Linkdown")}, {10, hostOf(2)}},
         "link 2, link 3, arrival 1, arrival 4"},
        {{{11, hostOf(0)}}, "link 1, link 4"},  // its files are not there yet
        {{{11, hostOf(1)}}, "arrival 0"},
        {{{12, hostOf(0)}}, "link 0"},
        {{{12, hostOf(0)}}, "arrival 5"},  // or never will be
        {{{12, hostOf(9)}}, ""},
        {{}, "link 5"},
        {{{13, {1, "Online", {}, {}, 9, {}, {}}}}, "arrival 5"},  // its adapter's name is as good
        {{{13, hostOf(6)}}, ""},
        {{{13, {1, "Online", {}, {}, 9, {}, {}}}}, ""}};  // but not once a port has had its own
    for (const auto& [lrHosts, lrEvents] : lSteps) {
        lWatch.mHosts = lrHosts;
        EXPECT_EQ(lWatch.look(), lrEvents);
    }
    EXPECT_EQ(lWatch.mWatcher.countBoards(), 6U);
    EXPECT_EQ(lWatch.mWatcher.getPort(5), 6U);
}

// What is announced of a host's coming and going, and found by a look, is one event.
TEST(FcWatcher, ComingsAndGoingsThatAreAnnounced) {
    ZTSFcTestWatch lWatch;
    EXPECT_EQ(lWatch.announce(ZTFCC_LinkDown), "link 0");
    lWatch.mHosts = {{7, hostOf(2)}};
    EXPECT_EQ(lWatch.look(), "arrival 1");
    EXPECT_EQ(lWatch.announce(ZTFCC_AdapterChange, 7), "");
    EXPECT_EQ(lWatch.announce(ZTFCC_AdapterChange, 7), "arrival 1");
    lWatch.mHosts[8] = hostOf(3);
    EXPECT_EQ(lWatch.look(), "arrival 2");
    lWatch.mNow += std::chrono::seconds(3);
    EXPECT_EQ(lWatch.announce(ZTFCC_AdapterChange, 8), "arrival 2");
    EXPECT_EQ(lWatch.announce(ZTFCC_Lip, 8), "link 2");  // which leaves it where it was
    lWatch.mHosts.erase(8);
    EXPECT_EQ(lWatch.look(), "link 2");
}

// Whichever allocation fails: each change is told once, then or at the next look.
TEST(FcWatcher, TellsEachChangeOnceWhenMemoryRunsOut) {
    const std::string lLong(64, 'n');  // names and states that have to be allocated
    ZTFcHosts lBefore{{1, hostOf(1)}, {2, hostOf(2)}, {3, hostOf(3)}};
    lBefore[1].mRemotePorts = {{lLong + "a", {5, lLong}}, {lLong + "b", {6, lLong}}};
    lBefore[2].mRemotePorts = {{lLong + "c", {7, lLong}}};
    lBefore[1].mCounters[0] = 1;
    ZTFcHosts lAfter{{1, hostOf(1, 1, lLong)}, {3, hostOf(3)}, {4, hostOf(4)}, {5, hostOf(5)}};
    lAfter[1].mRemotePorts = {{lLong + "b", {6, lLong + "x"}}, {lLong + "d", {8, lLong}}};
    lAfter[1].mCounters[0] = 2;
    const std::string lExpected =
        "link 0, error 0, rscn 0 5, rscn 0 6, rscn 0 8, link 1, rscn 1 7, arrival 3, arrival 4";
    bool lHasFailed = true;
    for (unsigned int lFailing = 1; lHasFailed; ++lFailing) {
        ZTSFcTestWatch lWatch(lBefore);
        FailingAllocator lAllocator(lFailing);
        try {
            lWatch.mWatcher.look(lAfter, {}, lWatch.mEvents);
        } catch (const std::bad_alloc&) {
        }
        lAllocator.stop();
        lHasFailed = lAllocator.hasFailed();
        lWatch.mWatcher.look(lAfter, {}, lWatch.mEvents);
        EXPECT_EQ(lWatch.takeEvents(), lExpected) << lFailing;
    }
    for (const std::uint32_t lCode : {ZTFCC_Lip, ZTFCC_LinkFpin}) {  // a message that is not taken is lost
        ZTSFcTestWatch lWatch;
        lWatch.announce(ZTFCC_Lip);
        {
            FailingAllocator lAllocator(1);
            EXPECT_THROW(lWatch.mWatcher.announce({3, lWatch.mNumber++, lCode, {}}, {}, lWatch.mEvents),
                         std::bad_alloc);
        }
        EXPECT_EQ(lWatch.announce(ZTFCC_Lip), "link 0");
        const auto lCounts = lWatch.mWatcher.takeCounts();
        EXPECT_EQ(lCounts.mLost, 1U);
        EXPECT_TRUE(lCounts.mWithoutKind.empty());
    }
}

// Those that come, and how many are lost and late since the row before.
TEST(FcWatcher, EventNumbers) {
    constexpr std::uint32_t sMax = UINT32_MAX;
    const std::tuple<std::vector<std::uint32_t>, std::uint64_t, std::uint64_t> sSteps[] = {
        {{50, 60, 61, 71}, 18, 0},
        {{75, 73, 76}, 2, 0},
        {{74}, 0, 1},
        {{77, 79, 78}, 0, 0},
        {{5000, sMax - 1, 2}, 4923, 0}};
    ZTSFcTestWatch lWatch;
    const auto lTake = [&](const std::vector<std::uint32_t>& acrNumbers) {
        for (const std::uint32_t lNumber : acrNumbers) {
            lWatch.mNumber = lNumber;
            EXPECT_EQ(lWatch.announce(ZTFCC_Lip), lWatch.mHosts.empty() ? "" : "link 0");
        }
        const auto lCounts = lWatch.mWatcher.takeCounts();
        return std::pair(lCounts.mLost, lCounts.mLate);
    };
    for (const auto& [lrNumbers, lLost, lLate] : sSteps) {
        EXPECT_EQ(lTake(lrNumbers), std::pair(lLost, lLate)) << lrNumbers.back();
    }
    lWatch.mHosts.clear();  // as when the transport is loaded anew
    lWatch.look();
    EXPECT_EQ(lTake({1, 4}), std::pair(2UL, 0UL));
}

}  // namespace
