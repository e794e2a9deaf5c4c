// When an incident is open, quiet, closed, opened again or one of a series, and who is told.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include "SignStory.h"
#include "TimeText.h"

namespace {

// What becomes of incidents: "+0:06 opened! 1 link_flap", and how they end: "1 link_flap closed +1:00".
std::string sToldIn(const std::string& acrRows, const ZTSStoryPlay& acrPlay = {}) {
    const ZTCSignStory lStory("at 2026-11-18 10:00\n" + acrRows);
    const ZTSStoryEnd lEnd = lStory.play(acrPlay);
    static constexpr const char* sWhys[] = {"opened", "reopened", "worse", "closed"};
    std::string lText;
    for (const auto& [lTime, lrTelling] : lEnd.mTellings) {
        lText += fmt::format("{}{} {} {}\n", sWhys[static_cast<std::size_t>(lrTelling.mWhy)],
                             lrTelling.mIsForCommand ? "!" : "", lrTelling.mIncident.mId,
                             nameOf(lrTelling.mIncident.mClass));
    }
    for (const ZTSIncident& lrIncident : lEnd.mIncidents) {
        const auto lSeconds = [&](ZTNanoseconds aTime) { return (aTime - lStory.getBegin()) / ZTSecond; };
        lText +=
            fmt::format("{} {} {}", lrIncident.mId, nameOf(lrIncident.mClass), nameOf(lrIncident.mState));
        lText += lrIncident.mClosed != 0 ? fmt::format(" +{}", lSeconds(lrIncident.mClosed)) : "";
        lText += lrIncident.mSeries != 0 ? fmt::format(" series {}", lrIncident.mSeries) : "";
        lText += lrIncident.mMerged != 0 ? fmt::format(" part of {}", lrIncident.mMerged) : "";
        lText += (lrIncident.mWindow.empty() ? "" : " in " + lrIncident.mWindow) + "\n";
    }
    return lText;
}

}  // namespace

TEST(FinderStates, AStateEndsWhenItIsAsItWas) {
    const std::string lDown = "+0s port-down host=hba0\n";
    EXPECT_EQ(sToldIn(lDown + "+20s end\n"), "opened! 1 port_down\n1 port_down open\n");
    EXPECT_EQ(sToldIn(lDown + "+70s end\n"), "opened! 1 port_down\n1 port_down quiet\n");
    EXPECT_EQ(sToldIn(lDown + "+3d end\n"), "opened! 1 port_down\n1 port_down quiet\n");
    // A quiet minute at least, and not a moment longer than it lasts.
    EXPECT_EQ(sToldIn(lDown + "+1s port-up host=hba0\n+2m end\n"),
              "opened! 1 link_flap\nclosed 1 link_flap\n1 link_flap closed +60\n");
    EXPECT_EQ(sToldIn(lDown + "+9m port-up host=hba0\n+12m end\n"),
              "opened! 1 port_down\nclosed 1 link_flap\n1 link_flap closed +540\n");
}

TEST(FinderStates, WhatHasNoStateEndsInSilence) {
    const std::string lErrors = "+0s check_condition host=hba0 from=array1-A0 sense=3/11/00 x9\n";
    EXPECT_EQ(sToldIn(lErrors + "+9m end\n"), "opened! 1 device_errors\n1 device_errors open\n");
    EXPECT_EQ(sToldIn(lErrors + "+11m end\n"),
              "opened! 1 device_errors\nclosed 1 device_errors\n1 device_errors closed +600\n");
    // Each one more begins it anew, and those that are harmless do not.
    EXPECT_EQ(sToldIn(lErrors + "+599s check_condition host=hba0 from=array1-A0 sense=3/11/00\n"
                                "+650s check_condition host=hba0 from=array1-A0 sense=6/29/00\n+1h end\n"),
              "opened! 1 device_errors\nclosed 1 device_errors\n1 device_errors closed +1199\n");
}

TEST(FinderStates, ARepeatOpensItAgainOrIsOneOfItsSeries) {
    const auto lTwice = [](const char* apLater) {
        return sToldIn(
            fmt::format("+0s port-down host=hba0\n+1s port-up host=hba0\n{0} port-down host=hba0\n"
                        "at 2026-11-27 12:00\n+0s end\n",
                        apLater));
    };
    const std::string lFirst = "opened! 1 link_flap\nclosed 1 link_flap\n";
    EXPECT_EQ(lTwice("+3659s"), lFirst + "reopened 1 port_down\n1 port_down quiet\n");
    EXPECT_EQ(lTwice("+3661s"), lFirst +
                                    "opened 2 port_down\n1 link_flap closed +60\n"
                                    "2 port_down quiet series 1\n");
    EXPECT_EQ(lTwice("+7d"), lFirst +
                                 "opened 2 port_down\n1 link_flap closed +60\n"
                                 "2 port_down quiet series 1\n");
    EXPECT_EQ(lTwice("+7d1m30s"),
              lFirst + "opened! 2 port_down\n1 link_flap closed +60\n2 port_down quiet\n");
    // Another port is another one.
    EXPECT_EQ(sToldIn("+0s port-down host=hba0\n+1s port-up host=hba0\n+5m port-down host=hba1\n+330s end\n"),
              lFirst + "opened! 2 port_down\n1 link_flap closed +60\n2 port_down open\n");
}

TEST(FinderStates, WhatGetsWorseIsTold) {
    // Half of the paths for ten minutes; none; stalls. The target's own trouble comes first.
    const std::string lLost = "+0s target-lost from=array1/A\n+30s paths-lost from=array1/A\n";
    const std::string lNone = "+20m target-lost from=array1/B\n+20m paths-lost from=array1/B\n";
    EXPECT_EQ(sToldIn(lLost + lNone + "+21m stall vg1-data\n+22m end\n"),
              "opened! 1 target_errors\nworse! 1 redundancy_lost\nworse! 1 redundancy_lost\n"
              "worse! 1 redundancy_lost\n1 redundancy_lost quiet\n"
              "2 target_errors closed +1202 part of 1\n");
    // Back within its time it is a symptom, and no more is told.
    EXPECT_EQ(sToldIn(lLost + "+9m target-back from=array1/A\n+9m paths-back from=array1/A\n+1h end\n"),
              "opened! 1 target_errors\nclosed 1 target_errors\n1 target_errors closed +540\n");
}

TEST(FinderStates, AWindowIsToldToNobodyAndWhatItLeavesIs) {
    const auto lIn = [](const std::string& acrRows) {
        const ZTCSignStory lStory(
            "window array1/A 2026-11-18T10:00:00Z 2026-11-18T12:00:00Z \"new firmware\"\n"
            "at 2026-11-18 10:30\n" +
            acrRows);
        std::string lText;
        const ZTSStoryEnd lEnd = lStory.play();
        for (const auto& lrTelling : lEnd.mTellings) {
            lText += fmt::format("{} ", (lrTelling.mTime - lStory.getBegin()) / ZTSecond / 60);
        }
        for (const ZTSIncident& lrIncident : lEnd.mIncidents) {
            lText += lrIncident.mWindow.empty() ? "outside" : "inside";
        }
        return lText;
    };
    const std::string lReboot =
        "+0s check_condition from=array1/A sense=2/04/0a x9\n+9s target-lost from=array1/A\n";
    EXPECT_EQ(lIn(lReboot + "+4m target-back from=array1/A\n+4h end\n"), "inside");
    EXPECT_EQ(lIn(lReboot + "+80m end\n"), "inside");
    EXPECT_EQ(lIn(lReboot + "+4h end\n"), "90 outside");
    EXPECT_EQ(lIn("+0s check_condition from=array1/B sense=2/04/0a x9\n+50s end\n"), "0 outside");
}

TEST(FinderStates, WhoAsksIsHeard) {
    const ZTCSignStory lStory(
        "at 2026-11-18 10:00\n"
        "+0s  target-lost from=array2/A\n+1s paths-lost from=array2/A\n"
        "+1h  ask acknowledge 1 who=mueller note=seen\n+1h ask keep 1\n"
        "+2h  ask accept 1 who=mueller\n+3h end\n");
    const ZTSIncident lIncident = lStory.play().mIncidents.at(0);
    ASSERT_TRUE(lIncident.mAcknowledged);
    EXPECT_EQ(lIncident.mAcknowledged->mNote, "seen");
    EXPECT_TRUE(lIncident.mIsKept);
    EXPECT_EQ(lIncident.mState, ZTEIncidentState::Closed);
    EXPECT_EQ(lIncident.mClosed - lStory.getBegin(), 7200 * ZTSecond);
    EXPECT_EQ(lIncident.mPathsLeft, lIncident.mPathsTotal);
    EXPECT_FALSE(ZTCIncidentFinder(getDefaultRules()).ask({ZTSIncidentAsk::What::Keep, 7, 1, "", ""}));
}
