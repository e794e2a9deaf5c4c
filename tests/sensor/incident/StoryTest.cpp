// What is told of a case, which class it is of and where it began: cases as the finder makes them.
#include "IncidentJson.h"
#include "IncidentStory.h"
#include "TestSupport.h"

namespace {

using Sign = ZTESign;
using Focus = ZTEFocus;
using Class = ZTEIncidentClass;

constexpr ZTNanoseconds sTuesday = 1794909720 * ZTSecond;   // 2026-11-17 10:02 UTC
constexpr ZTNanoseconds sSaturday = 1795230000 * ZTSecond;  // 2026-11-21 03:00 UTC

ZTSWwn hba(unsigned int aNumber) {
    return {{0x10, 0, 0, 0, 0, 0, 0, static_cast<std::uint8_t>(aNumber)}};
}
ZTSWwn port(unsigned int aArray, unsigned int aController, unsigned int aNumber) {
    return {{0x50, 0, 0, 0, 0, static_cast<std::uint8_t>(aArray), static_cast<std::uint8_t>(aController),
             static_cast<std::uint8_t>(aNumber)}};
}

const ZTPortLabels sLabels{{hba(0), {"hba0", "", "", "A", "sw1 3/14"}},
                           {hba(1), {"hba1", "", "", "B", ""}},
                           {hba(2), {"hba2", "", "", "A", ""}},
                           {port(1, 0, 0), {"array1-A0", "array1", "A", "A", ""}},
                           {port(1, 0, 1), {"array1-A1", "array1", "A", "A", ""}},
                           {port(1, 1, 0), {"array1-B0", "array1", "B", "B", ""}},
                           {port(1, 1, 1), {"array1-B1", "array1", "B", "B", ""}}};

/// A sign of one pair of ports, so many seconds behind another moment.
ZTSSignSum sum(Sign aSign, ZTNanoseconds aTime, int aSeconds, const ZTSWwn& acrInitiator,
               const ZTSWwn& acrRemote = {}, std::uint64_t aEvents = 1, int aFor = 0) {
    ZTSSignSum lSum;
    lSum.mSign.mSign = aSign;
    lSum.mSign.mFirst = aTime + aSeconds * ZTSecond;
    lSum.mSign.mLast = lSum.mSign.mFirst + aFor * ZTSecond;
    lSum.mSign.mEvents = aEvents;
    lSum.mSign.mInitiator = acrInitiator;
    lSum.mSign.mRemote = acrRemote;
    lSum.mSign.mFabric = acrInitiator.mBytes[7] % 2 == 0 ? "A" : "B";
    return lSum;
}

struct Case : ZTSCase {
    ZTNanoseconds mNow = 0;
    ZTSIncidentRules mRules = getDefaultRules();
    std::deque<ZTSChange> mChanges;

    ZTSStoryFrame frame() const { return {mRules, sLabels, mChanges, mNow}; }
    std::optional<Class> ofClass() const { return classOf(*this, frame()); }
    ZTSIncident tell(Class aFormer = Class::IoStall) const {
        ZTSIncident lIncident;
        tellStory(*this, ofClass().value_or(aFormer), frame(), lIncident);
        return lIncident;
    }
    /// "link_flap: the sentence".
    std::string told() const {
        const auto lClass = ofClass();
        return lClass ? std::string(nameOf(*lClass)) + ": " + tell().mTitle : "nothing";
    }
};

/// A case of one place, with the openings that were reached.
Case at(ZTSFocus aFocus, std::vector<ZTSSignSum> aSums, std::set<std::pair<Class, Sign>> aReached = {}) {
    Case lCase;
    lCase.mOpened = aSums.front().mSign.mFirst;
    lCase.mNow = lCase.mOpened + 60 * ZTSecond;
    lCase.mClusters.push_back({std::move(aFocus), std::move(aSums)});
    lCase.mReached = std::move(aReached);
    return lCase;
}

const ZTSFocus sAtHba0{Focus::Initiator, hba(0), {}, ""};
const ZTSFocus sAtA0{Focus::Remote, {}, port(1, 0, 0), ""};
const ZTSFocus sAtA{Focus::Controller, {}, {}, "array1/A"};
const ZTSFocus sAtB{Focus::Controller, {}, {}, "array1/B"};

void lose(Case& arCase, const char* apMap, unsigned int aLeft, unsigned int aTotal, ZTNanoseconds aSince) {
    ZTSCaseMap& lrMap = arCase.mMaps[apMap];
    lrMap.mLeft = lrMap.mLeast = aLeft;
    lrMap.mTotal = aTotal;
    lrMap.mSince = aSince;
    lrMap.mAllGone = aLeft == 0 ? aSince : 0;
}

/// All paths of some ports: initiators and remote ports in the same order.
void takePaths(std::vector<ZTSSignSum>& arSums, Case& arCase, ZTNanoseconds aTime,
               const std::vector<std::pair<ZTSWwn, ZTSWwn>>& acrPairs) {
    for (const auto& [lrInitiator, lrRemote] : acrPairs) {
        arSums.push_back(sum(Sign::PathLost, aTime, 0, lrInitiator, lrRemote));
        arSums.back().mSign.mDisk = "mpathb";
        arCase.mMaps["mpathb"].mMissing[{lrInitiator, lrRemote}] = aTime;
    }
}

/// Tuesday: controller B leaves fabric B. Saturday: controller A reboots.
Case forgottenZoning(bool aIsSaturday) {
    Case lCase = at(
        sAtB, {sum(Sign::Rscn, sTuesday, 0, hba(1)), sum(Sign::Logo, sTuesday, 1, hba(1), port(1, 1, 0), 2),
               sum(Sign::Logo, sTuesday, 1, hba(3), port(1, 1, 1), 2)});
    lose(lCase, "mpathb", 4, 8, sTuesday + 30 * ZTSecond);
    takePaths(
        lCase.mClusters[0].mSums, lCase, sTuesday + 30 * ZTSecond,
        {{hba(1), port(1, 1, 0)}, {hba(1), port(1, 1, 1)}, {hba(3), port(1, 1, 0)}, {hba(3), port(1, 1, 1)}});
    lCase.mHits = {{}, {}, {"mpathb"}, {"vg1-data", "vg1-home"}, {"/data", "/home"}};
    lCase.mNow = sTuesday + 700 * ZTSecond;
    if (aIsSaturday) {
        lCase.mClusters.push_back({sAtA,
                                   {sum(Sign::NotReady, sSaturday, 0, hba(0), port(1, 0, 0), 12),
                                    sum(Sign::Logo, sSaturday, 8, hba(2), port(1, 0, 1), 4)}});
        lCase.mReached = {{Class::TargetErrors, Sign::NotReady}};
        takePaths(lCase.mClusters[1].mSums, lCase, sSaturday + 13 * ZTSecond,
                  {{hba(0), port(1, 0, 0)},
                   {hba(0), port(1, 0, 1)},
                   {hba(2), port(1, 0, 0)},
                   {hba(2), port(1, 0, 1)}});
        ZTSCaseMap& lrMap = lCase.mMaps["mpathb"];
        lrMap.mLeft = lrMap.mLeast = 0;
        lrMap.mAllGone = sSaturday + 13 * ZTSecond;
        lCase.mNow = sSaturday + 20 * ZTSecond;
    }
    return lCase;
}

TEST(Story, ForgottenZoningIsToldWithBothItsCauses) {
    Case lCase = forgottenZoning(false);
    EXPECT_EQ(lCase.told(),
              "redundancy_lost: /data and /home have had 4 of 8 paths since 2026-11-17 10:02 UTC by a "
              "change in fabric B");
    lCase.mNow = sTuesday + 600 * ZTSecond;  // half a minute before its patience ends
    EXPECT_EQ(
        lCase.told(),
        "fabric_change: Fabric B changed at 2026-11-17 10:02 UTC: array1-B0 and array1-B1 left it: /data and "
        "/home have 4 of 8 paths left");

    lCase = forgottenZoning(true);
    EXPECT_EQ(
        lCase.told(),
        "redundancy_lost: All paths of /data and /home are gone: 4 of 8 since 2026-11-17 10:02 UTC by a change "
        "in fabric B, the rest since 2026-11-21 03:00 UTC by a reboot of array1/A");
    const ZTSIncident lIncident = lCase.tell();
    EXPECT_EQ(lIncident.mFirstCause, (ZTSIncidentCause{"rscn", hba(1), {}, "B", sTuesday, true}));
    ASSERT_EQ(lIncident.mCauses.size(), 1U);
    EXPECT_EQ(lIncident.mCauses[0],
              (ZTSIncidentCause{"not_ready", hba(0), port(1, 0, 0), "A", sSaturday, true}));
    EXPECT_EQ(lIncident.mPathsLeft, 0U);
    EXPECT_EQ(lIncident.mPathsTotal, 8U);
    EXPECT_EQ(lIncident.mFabrics, (std::vector<std::string>{"A", "B"}));

    // The controller is back, the zoning is not.
    ZTSCaseMap& lrMap = lCase.mMaps["mpathb"];
    lrMap.mLeft = 4;
    std::erase_if(lrMap.mMissing,
                  [](const auto& acrMissing) { return acrMissing.first.first.mBytes[7] % 2 == 0; });
    EXPECT_EQ(
        lCase.tell().mTitle,
        "/data and /home have had 4 of 8 paths since 2026-11-17 10:02 UTC by a change in fabric B; none was "
        "left at 2026-11-21 03:00 UTC by a reboot of array1/A");
    lrMap.mLeft = 8;
    lrMap.mMissing.clear();
    lrMap.mBack = sSaturday + 7200 * ZTSecond;
    EXPECT_EQ(
        lCase.tell().mTitle,
        "/data and /home had 4 of 8 paths from 2026-11-17 10:02 to 2026-11-21 05:00 UTC by a change in fabric "
        "B; none was left at 2026-11-21 03:00 UTC by a reboot of array1/A");
}

TEST(Story, ALinkIsDownUntilItIsUpAgain) {
    Case lCase = at(sAtHba0, {sum(Sign::LinkDown, sTuesday, 0, hba(0), {}, 3, 100)});
    lCase.mHits.mMounts = {"/data"};
    lCase.mDown[hba(0)] = sTuesday;
    lose(lCase, "mpathb", 4, 8, sTuesday);
    EXPECT_EQ(lCase.told(),
              "port_down: hba0 has been down since 2026-11-17 10:02 UTC: /data has 4 of 8 paths left");
    EXPECT_EQ(lCase.tell().mSuggestion,
              "Look at the cable, the transceiver and the switch port of hba0 (sw1 3/14).");
    lCase.mDown.clear();
    lCase.mMaps["mpathb"].mLeft = 8;
    EXPECT_EQ(lCase.told(),
              "link_flap: The link of hba0 went down 3 times from 2026-11-17 10:02 to 10:03 UTC: /data "
              "had 4 of 8 paths for a time");

    // Down for an hour; what it took comes back behind it, or does not.
    takePaths(lCase.mClusters[0].mSums, lCase, sTuesday, {{hba(0), port(1, 0, 0)}});
    lCase.mClusters[0].mSums.push_back(sum(Sign::LinkUp, sTuesday, 3600, hba(0)));
    lCase.mMaps["mpathb"].mBack = sTuesday + 3605 * ZTSecond;
    EXPECT_EQ(lCase.ofClass(), Class::LinkFlap);
    lCase.mMaps["mpathb"].mLeft = 4;
    lCase.mMaps["mpathb"].mBack = 0;
    lCase.mNow = sTuesday + 4199 * ZTSecond;
    EXPECT_EQ(lCase.ofClass(), Class::LinkFlap);
    lCase.mNow += ZTSecond;
    EXPECT_EQ(lCase.ofClass(), Class::RedundancyLost);
}

TEST(Story, TheChainOfCausesComesBeforeTime) {
    const auto lCauseOf = [](const Case& acrCase) {
        const auto lCauses = findCauses(acrCase, acrCase.frame());
        return lCauses.empty() ? "none" : lCauses[0].mKind + (lCauses[0].mIsLikely ? "" : "?");
    };
    const auto lAtA0 = [](std::vector<ZTSSignSum> aSums) {
        for (ZTSSignSum& lrSum : aSums) {
            lrSum.mSign.mRemote = port(1, 0, 0);
        }
        return at(sAtA0, std::move(aSums));
    };
    const auto lSign = [](Sign aSign, int aSeconds) { return sum(aSign, sTuesday, aSeconds, hba(0)); };
    // The agent's clock and the kernel's are off by as much as they may be; then by more.
    EXPECT_EQ(lCauseOf(lAtA0({lSign(Sign::LinkDown, 0), lSign(Sign::TargetLost, 1)})), "link_down");
    EXPECT_EQ(lCauseOf(lAtA0({lSign(Sign::LinkDown, 2), lSign(Sign::TargetLost, 0)})), "link_down");
    EXPECT_EQ(lCauseOf(lAtA0({lSign(Sign::LinkDown, 9), lSign(Sign::TargetLost, 0)})), "link_down?");
    // What comes when it is long under way is no cause.
    EXPECT_EQ(lCauseOf(lAtA0({lSign(Sign::LinkDown, 200), lSign(Sign::TargetLost, 0)})), "target_lost");
    EXPECT_EQ(lCauseOf(lAtA0({lSign(Sign::Rscn, 30), lSign(Sign::TargetLost, 0)})), "target_lost");
    // A time-out was sent long before it is told.
    EXPECT_EQ(lCauseOf(lAtA0({lSign(Sign::Timeout, 40), lSign(Sign::Aborted, 0)})), "timeout");
    // A target that goes says so, and the fabric too.
    EXPECT_EQ(lCauseOf(lAtA0({lSign(Sign::Rscn, 0), lSign(Sign::NotReady, 1)})), "not_ready");
    EXPECT_EQ(lCauseOf(lAtA0({lSign(Sign::Stall, 0)})), "stall?");
    EXPECT_EQ(lCauseOf(lAtA0({lSign(Sign::Login, 0), lSign(Sign::UnitAttention, 0)})), "none");
}

TEST(Story, WhoTheFabricNamesIsTheCulpritAndNotTheBusiestVictim) {
    Case lCase = at({Focus::Fabric, {}, {}, "A"},
                    {sum(Sign::Timeout, sTuesday, 0, hba(2), port(1, 0, 1), 5000, 60),
                     sum(Sign::FpinCongestion, sTuesday, 15, hba(0), port(1, 0, 0), 3, 30)},
                    {{Class::SlowDrain, Sign::FpinCongestion}, {Class::IoStall, Sign::Timeout}});
    EXPECT_EQ(lCase.told(),
              "slow_drain: The fabric told 3 times of congestion at array1-A0 at 2026-11-17 10:02 UTC");
    EXPECT_EQ(lCase.tell().mFirstCause, (ZTSIncidentCause{"fpin_congestion", hba(0), port(1, 0, 0), "A",
                                                          sTuesday + 15 * ZTSecond, true}));
    lCase.mHits.mVolumes = {"v1", "v2", "v3", "v4", "v5"};
    EXPECT_EQ(lCase.tell().mTitle,
              "The fabric told 3 times of congestion at array1-A0 at 2026-11-17 10:02 UTC, on "
              "the way to v1, v2, v3 and 2 more");
}

TEST(Story, TwoThatBeganAtOnceAreEachOnlyPossible) {
    Case lCase = at(sAtHba0, {sum(Sign::LinkDown, sTuesday, 0, hba(0))});
    lCase.mClusters.push_back(
        {{Focus::Initiator, hba(1), {}, ""}, {sum(Sign::LinkDown, sTuesday, 1, hba(1))}});
    lCase.mDown = {{hba(0), sTuesday}, {hba(1), sTuesday}};
    lose(lCase, "mpatha", 0, 8, sTuesday);
    const ZTSIncident lIncident = lCase.tell();
    EXPECT_EQ(
        lIncident.mTitle,
        "hba0 has been down since 2026-11-17 10:02 UTC: all paths of mpatha are gone; hba1 has been down since "
        "2026-11-17 10:02 UTC");
    EXPECT_FALSE(lIncident.mFirstCause.mIsLikely);
    ASSERT_EQ(lIncident.mCauses.size(), 1U);
    EXPECT_FALSE(lIncident.mCauses[0].mIsLikely);

    // The same, told in the other order.
    std::swap(lCase.mClusters[0], lCase.mClusters[1]);
    EXPECT_EQ(lCase.tell().mFirstCause, lIncident.mFirstCause);

    // Both have cost paths for long: how many each.
    lCase.mNow = sTuesday + 3600 * ZTSecond;
    for (ZTSCluster& lrCluster : lCase.mClusters) {
        takePaths(
            lrCluster.mSums, lCase, sTuesday,
            {{lrCluster.mFocus.mInitiator, port(1, 0, 0)}, {lrCluster.mFocus.mInitiator, port(1, 1, 0)}});
    }
    lCase.mMaps.erase("mpatha");
    lose(lCase, "mpathb", 4, 8, sTuesday);
    EXPECT_EQ(lCase.told(),
              "redundancy_lost: mpathb has 4 of 8 paths left: 2 have been gone since 2026-11-17 10:02 "
              "UTC possibly by the loss of the link of hba0, 2 since 2026-11-17 10:02 UTC possibly by "
              "the loss of the link of hba1");
}

TEST(Story, MapsThatStandDifferentlyAreToldOfByTheirWorst) {
    Case lCase = at(sAtHba0, {sum(Sign::LinkDown, sTuesday, 0, hba(0))});
    lCase.mDown[hba(0)] = sTuesday;
    lCase.mHits.mMounts = {"/data", "/home"};
    lose(lCase, "mpatha", 4, 8, sTuesday);
    lose(lCase, "mpathb", 1, 4, sTuesday);
    lCase.mStalled["mpathb"] = sTuesday;
    EXPECT_EQ(lCase.tell().mTitle,
              "hba0 has been down since 2026-11-17 10:02 UTC: mpathb has 1 of 4 paths left, on "
              "the way to /data and /home; I/O stands still");
    EXPECT_EQ(lCase.tell().mPathsLeft, 1U);
    EXPECT_EQ(lCase.tell().mPathsTotal, 4U);
}

TEST(Story, ARebootOfAControllerIsOneOfItsTargets) {
    Case lCase = at(sAtA,
                    {sum(Sign::NotReady, sSaturday, 0, hba(0), port(1, 0, 0), 12, 4),
                     sum(Sign::Logo, sSaturday, 8, hba(0), port(1, 0, 0)),
                     sum(Sign::Logo, sSaturday, 8, hba(2), port(1, 0, 1)),
                     sum(Sign::TargetLost, sSaturday, 9, hba(0), port(1, 0, 0))},
                    {{Class::TargetErrors, Sign::NotReady}});
    lCase.mLostTargets[{hba(0), port(1, 0, 0)}] = sSaturday;
    EXPECT_EQ(lCase.told(), "target_errors: array1/A has been gone since 2026-11-21 03:00 UTC");
    lCase.mLostTargets.clear();
    lCase.mClusters[0].mSums.push_back(sum(Sign::TargetBack, sSaturday, 240, hba(0), port(1, 0, 0)));
    EXPECT_EQ(lCase.told(), "target_errors: array1/A rebooted from 2026-11-21 03:00 to 03:04 UTC");
    EXPECT_EQ(lCase.tell().mTargets, (std::vector{port(1, 0, 0)}));
}

TEST(Story, AnArrayThatGoesFromTwoFabricsIsNoChangeInOne) {
    Case lCase =
        at({Focus::Array, {}, {}, "array1"}, {sum(Sign::Rscn, sTuesday, 0, hba(0), port(1, 0, 0)),
                                              sum(Sign::Rscn, sTuesday, 0, hba(1), port(1, 1, 0)),
                                              sum(Sign::TargetLost, sTuesday, 2, hba(0), port(1, 0, 0)),
                                              sum(Sign::TargetLost, sTuesday, 2, hba(1), port(1, 1, 0))});
    lCase.mLostTargets = {{{hba(0), port(1, 0, 0)}, sTuesday}, {{hba(1), port(1, 1, 0)}, sTuesday}};
    EXPECT_EQ(lCase.told(), "target_errors: array1 has been gone since 2026-11-17 10:02 UTC");
    EXPECT_EQ(lCase.tell().mFirstCause.mKind, "target_lost");
    std::erase_if(lCase.mClusters[0].mSums,
                  [](const ZTSSignSum& acrSum) { return acrSum.mSign.mInitiator == hba(1); });
    EXPECT_EQ(lCase.told(), "fabric_change: Fabric A changed at 2026-11-17 10:02 UTC: array1-A0 left it");
    EXPECT_EQ(lCase.tell().mFirstCause.mKind, "rscn");
}

TEST(Story, SilenceIsToldWhenItLasts) {
    Case lCase = at({Focus::Host, {}, {}, ""}, {sum(Sign::AgentGone, sTuesday, 0, {})});
    lCase.mAgentGone = sTuesday;
    lCase.mNow = sTuesday + 599 * ZTSecond;
    EXPECT_EQ(lCase.told(), "nothing");
    lCase.mNow = sTuesday + 600 * ZTSecond;
    EXPECT_EQ(lCase.told(),
              "collector_silent: No events have been collected on this host since 2026-11-17 10:02 "
              "UTC: the agent is gone");
    lCase.mAgentGone = 0;
    lCase.mClusters[0].mSums.push_back(sum(Sign::AgentBack, sTuesday, 90, {}));
    // It was known while it lasted; one that was back in time is none.
    EXPECT_EQ(lCase.told(), "nothing");
    EXPECT_EQ(lCase.tell(Class::CollectorSilent).mTitle,
              "No events were collected on this host from 2026-11-17 10:02 to 10:03 UTC: the agent was gone");
    lCase.mReached = {{Class::CollectorSilent, Sign::SensorGone}};
    lCase.mClusters[0].mSums = {sum(Sign::SensorGone, sTuesday, 0, {}, {}, 1, 600)};
    EXPECT_EQ(lCase.told(),
              "collector_silent: No events were collected on this host from 2026-11-17 10:02 to 10:12 "
              "UTC: vrx-sn did not run");
    applyRule(lCase.mRules, "collector_silent off");
    EXPECT_EQ(lCase.told(), "nothing");
}

TEST(Story, ADiskThatStandsStillIsToldByWhatStandsOnIt) {
    Case lCase = at({Focus::Disk, {}, {}, "vg1-data"}, {sum(Sign::Stall, sTuesday, 0, {})});
    lCase.mClusters[0].mSums[0].mSign.mDisk = "vg1-data";
    lCase.mStalled["vg1-data"] = sTuesday;
    EXPECT_EQ(lCase.told(), "io_stall: vg1-data has stood still since 2026-11-17 10:02 UTC");
    lCase.mHits.mMounts = {"/a", "/b"};
    EXPECT_EQ(lCase.told(), "io_stall: /a and /b have stood still since 2026-11-17 10:02 UTC");
    lCase.mStalled.clear();
    lCase.mClusters[0].mSums.push_back(sum(Sign::StallOver, sTuesday, 180, {}));
    EXPECT_EQ(lCase.told(), "io_stall: /a and /b stood still from 2026-11-17 10:02 to 10:05 UTC");
}

TEST(Story, CountsWhatWasSeenAndSaysWhichRecordsThatWas) {
    Case lCase = at(sAtA0,
                    {sum(Sign::LoginReject, sTuesday, 60, hba(0), port(1, 0, 0), 5, 10),
                     sum(Sign::Logo, sTuesday, 0, hba(0), port(1, 0, 0), 2),
                     sum(Sign::Logo, sTuesday, 100, hba(0), port(1, 0, 0), 3, 5),
                     sum(Sign::Logo, sTuesday, 500, hba(0), port(1, 0, 0)),
                     sum(Sign::UnitAttention, sTuesday, 3, hba(2), port(1, 1, 1), 7)},
                    {{Class::LoginRejected, Sign::LoginReject}});
    for (ZTSSignSum& lrSum : lCase.mClusters[0].mSums) {
        lrSum.mSign.mCategory = lrSum.mSign.mSign == Sign::Logo ? 1 : 0;
    }
    lCase.mLosses = 4;
    const ZTSIncident lIncident = lCase.tell();
    EXPECT_EQ(lIncident.mTitle, "array1-A0 rejected 5 logins of hba0 at 2026-11-17 10:03 UTC");
    EXPECT_EQ(lIncident.mEvents, 18U);
    EXPECT_EQ(lIncident.mLosses, 4U);
    const auto lAt = [](int aSeconds) { return sTuesday + aSeconds * ZTSecond; };
    EXPECT_EQ(lIncident.mSymptoms, (std::vector<ZTSIncidentSymptom>{{"logo", 6, lAt(0), lAt(500)},
                                                                    {"unit_attention", 7, lAt(3), lAt(3)},
                                                                    {"login_reject", 5, lAt(60), lAt(70)}}));
    // What lies far apart is two, so that nothing between is taken for its own.
    EXPECT_EQ(lIncident.mEvidence,
              (std::vector<ZTSIncidentEvidence>{{1, 0, hba(0), port(1, 0, 0), "A", lAt(0), lAt(105)},
                                                {1, 0, hba(0), port(1, 0, 0), "A", lAt(500), lAt(500)}}));
    // What is harmless does not make it larger.
    EXPECT_EQ(lIncident.mInitiators, std::vector{hba(0)});
    EXPECT_EQ(lIncident.mTargets, (std::vector{port(1, 0, 0)}));
}

TEST(Story, TellsTheChangesBeforeItThatConcernIt) {
    Case lCase = at(sAtHba0, {sum(Sign::LinkDown, sSaturday, 0, hba(0), port(1, 0, 0))});
    lCase.mHits.mMaps = {"mpatha"};
    const std::string lPair = port(1, 0, 0).toText() + " seen from ";
    const auto lChange = [&](int aDays, const char* apWhat, const std::string& acrName,
                             const char* apAttribute) {
        lCase.mChanges.push_back(
            {sSaturday - aDays * 86400 * ZTSecond, apWhat, acrName, "changed", apAttribute, "1", "2"});
    };
    lChange(8, "note", "too old", "");
    lChange(7, "note", "told", "");
    lChange(6, "port", hba(0).toText(), "firmware");
    lChange(6, "port", hba(1).toText(), "firmware");
    lChange(6, "port", hba(0).toText(), "state");
    lChange(5, "remote_port", lPair + hba(0).toText(), "dev_loss_tmo");
    lChange(5, "remote_port", lPair + hba(1).toText(), "dev_loss_tmo");
    lChange(4, "map", "mpatha", "paths");
    lChange(4, "volume", "elsewhere", "over");
    lChange(3, "agent", "vrx-sca", "");
    lChange(2, "host", "server1", "kernel");
    lChange(-1, "note", "too late", "");
    const auto lTold = [&] {
        std::string lText;
        for (const ZTSChange& lrChange : lCase.tell().mChanges) {
            lText.append(lText.empty() ? "" : " ").append(lrChange.mWhat);
        }
        return lText;
    };
    EXPECT_EQ(lTold(), "note port remote_port host");
    applyRule(lCase.mRules, "times most_changes=2");
    EXPECT_EQ(lTold(), "remote_port host");
}

TEST(Story, IsOneDocumentOfJson) {
    Case lCase = forgottenZoning(true);
    ZTSIncident lIncident = lCase.tell();
    lIncident.mId = 12;
    lIncident.mState = ZTEIncidentState::Open;
    lIncident.mOpened = sTuesday;
    lIncident.mAcknowledged = {"root", sSaturday, "seen"};
    std::string lText;
    ZTCJsonWriter lJson(lText);
    lJson.beginObject();
    putIncident(lJson, lIncident, "server1", sLabels, std::vector<std::uint64_t>{7, 9});
    lJson.endObject();
    for (const char* const lpPart :
         {R"({"id":12,"class":"redundancy_lost","state":"open","title":"All paths of /data and )",
          R"("opened":"2026-11-17T10:02:00.000000000Z")",
          R"("closed":null,"merged":null,"hosts":["server1"])",
          R"("hits":{"luns":[],"disks":[],"maps":["mpathb"])", R"("first_cause":{"kind":"rscn")",
          R"("name":"hba1")", R"("confidence":"likely")", R"("paths":{"left":0,"total":8},"losses":0)",
          R"("evidence":[7,9])",
          R"("acknowledged":{"who":"root","when":"2026-11-21T03:00:00.000000000Z","note":"seen"})",
          R"("window":null,"kept":false})"}) {
        EXPECT_TRUE(contains(lText, lpPart)) << lpPart << "\n" << lText;
    }
}

}  // namespace
