// Which signs belong together, what is ordinary, and what is remembered.
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <gtest/gtest.h>

#include "PortText.h"
#include "SignStory.h"

namespace {

// "link_flap hba0" of each that is part of no other.
std::string sFound(const std::string& acrRows, const ZTSStoryPlay& acrPlay = {}) {
    const ZTSStoryEnd lEnd = ZTCSignStory("at 2026-11-18 10:00\n" + acrRows).play(acrPlay);
    std::string lText;
    for (const ZTSIncident& lrIncident : lEnd.mIncidents) {
        if (lrIncident.mMerged == 0) {
            lText += lText.empty() ? "" : ", ";
            lText += nameOf(lrIncident.mClass);
            for (const ZTSWwn& lrPort : lrIncident.mInitiators) {
                lText += " " + portText(lEnd.mNames, lrPort);
            }
        }
    }
    return lText;
}

ZTSSign sSign(ZTESign aSign, ZTNanoseconds aTime, std::uint8_t aPort) {
    ZTSSign lSign;
    lSign.mSign = aSign;
    lSign.mFirst = lSign.mLast = aTime;
    lSign.mInitiator.mBytes = {0x10, 0, 0, 0, 0, 0, 0, 1};
    lSign.mRemote.mBytes = {0x50, 0, 0, 0, 0, 0, 0, aPort};
    return lSign;
}

constexpr ZTNanoseconds sBegin = 1'800'000'000 * ZTSecond;
constexpr ZTNanoseconds sDay = 86400 * ZTSecond;

}  // namespace

TEST(FinderGroups, WhatALinkExplainsTiesNothing) {
    // What hba0 sees of array1/A is its own link's; array1/B is in trouble by itself, with hba0's map.
    EXPECT_EQ(sFound("+0s port-down host=hba0\n+1s target-lost host=hba0 from=*\n"
                     "+2s check_condition host=hba2 from=array1-B0 sense=2/04/0a x5\n"
                     "+3s target-lost host=hba2 from=array1-B0\n+1h end\n"),
              "port_down hba0, target_errors hba2");
    // By another clock the link went down behind its effects.
    EXPECT_EQ(sFound("+0s target-lost host=hba0 from=*\n+1s port-down host=hba0\n"
                     "+2s target-lost host=hba2 from=array1-A0\n+1h end\n"),
              "port_down hba0, target_errors hba2");
}

TEST(FinderGroups, FabricsAreTiedByAnArrayAlone) {
    EXPECT_EQ(sFound("+0s target-lost host=hba0 from=array1-A0\n+0s target-lost host=hba1 from=array2-A1\n"
                     "+5m end\n"),
              "target_errors hba0, target_errors hba1");
    EXPECT_EQ(sFound("+0s target-lost host=hba0 from=array1-A0\n+1s target-lost host=hba1 from=array1-A1\n"
                     "+5m end\n"),
              "target_errors hba0 hba1");
    // Of all links of a fabric at once, and one after the other.
    EXPECT_EQ(sFound("+0s port-down host=hba0\n+2s port-down host=hba2\n+5m end\n"), "port_down hba0 hba2");
    EXPECT_EQ(sFound("+0s port-down host=hba0\n+20s port-down host=hba2\n+5m end\n"),
              "port_down hba0, port_down hba2");
    EXPECT_EQ(sFound("+0s port-down host=hba0\n+2s port-down host=hba1\n+5m end\n"),
              "port_down hba0, port_down hba1");
}

TEST(FinderGroups, TheLastPathOfAMapTiesWhatTookTheOthers) {
    const std::string lLinks =
        "+0s port-down host=hba0\n+5s paths-lost host=hba0 from=*\n+20s port-down host=hba1\n"
        "+25s paths-lost host=hba1 from=*\n+40s port-down host=hba2\n+45s paths-lost host=hba2 from=*\n";
    EXPECT_EQ(sFound(lLinks + "+5m end\n"), "port_down hba0, port_down hba1, port_down hba2");
    EXPECT_EQ(sFound(lLinks + "+60s port-down host=hba3\n+65s paths-lost host=hba3 from=*\n+5m end\n"),
              "port_down hba0 hba1 hba2 hba3");
}

TEST(FinderGroups, WhatComesEveryDayIsOrdinary) {
    ZTCIncidentFinder lFinder(getDefaultRules());
    const auto lPlay = [&](int aDay, unsigned int aEvents) {
        const ZTNanoseconds lTime = sBegin + aDay * sDay;
        for (unsigned int lAt = 0; lAt < aEvents; ++lAt) {
            lFinder.take(sSign(ZTESign::QueueFull, lTime + lAt * ZTSecond, 1));
        }
        lFinder.advance(lTime + sDay / 2);
        return lFinder.takeTellings().size() / 2;  // opened and closed
    };
    std::vector<std::size_t> lTold;
    for (const unsigned int lEvents : {40U, 50U, 60U, 40U, 249U, 250U, 60U}) {
        lTold.push_back(lPlay(static_cast<int>(lTold.size()), lEvents));
    }
    // The median is 50 on the fifth day and on the sixth.
    EXPECT_EQ(lTold, (std::vector<std::size_t>{1, 1, 1, 0, 0, 1, 0}));
    const auto lNews = lFinder.takeNews();
    ASSERT_EQ(lNews.mBaselines.size(), 2);
    EXPECT_EQ(lNews.mBaselines[1].mEvents, 60);
}

TEST(FinderGroups, MemoryIsOfWhatIsOpen) {
    ZTCIncidentFinder lFinder(getDefaultRules());
    std::size_t lEarly = 0;
    for (unsigned int lSecond = 0; lSecond < 3600; ++lSecond) {
        for (std::uint8_t lAt = 0; lAt < 20; ++lAt) {
            ZTSSign lSign = sSign(ZTESign::UnitAttention, sBegin + lSecond * ZTSecond, lAt);
            lSign.mDetail = fmt::format("{:x}", lSecond * 20 + lAt);  // each says something else
            lFinder.take(lSign);
        }
        lFinder.advance(sBegin + lSecond * ZTSecond);
        lEarly = lSecond == 1800 ? lFinder.getBytes() : lEarly;
    }
    EXPECT_LT(lFinder.getBytes(), lEarly * 3 / 2);
    lFinder.finish(sBegin + sDay);
    EXPECT_LT(lFinder.getBytes(), lEarly / 10);
    EXPECT_TRUE(lFinder.takeNews().mIncidents.empty());
}

TEST(FinderGroups, AMemoryThatSaysNothingHoldsNothingOpen) {
    const std::string lWhole = [] {
        ZTCIncidentFinder lFinder(getDefaultRules());
        lFinder.take(sSign(ZTESign::TargetLost, sBegin, 1));
        lFinder.advance(sBegin + 60 * ZTSecond);
        return lFinder.takeNews().mIncidents.at(0).mMemory;
    }();
    for (const std::string& lrMemory :
         {std::string(), std::string("{"), std::string("[1]"), lWhole.substr(0, lWhole.size() / 2),
          std::string(R"({"form":2})"), std::string(R"({"form":1,"case":{}})"), lWhole}) {
        ZTSIncidentStart lStart{8, {}, {}, sBegin + 50 * ZTSecond};
        ZTSIncident& lrIncident = lStart.mIncidents.emplace_back();
        lrIncident.mId = 7;
        lrIncident.mOpened = lrIncident.mLast = sBegin;
        lrIncident.mClass = ZTEIncidentClass::TargetErrors;
        lrIncident.mMemory = lrMemory;
        lrIncident.mTitle = "as it was told";
        ZTCIncidentFinder lFinder(getDefaultRules());
        lFinder.setStart(lStart);
        lFinder.finish(sBegin + sDay);
        const bool lIsLost = lFinder.countOpen().contains(ZTEIncidentClass::TargetErrors);
        EXPECT_EQ(lIsLost, lrMemory == lWhole) << lrMemory;
        for (const ZTSIncident& lrNow : lFinder.takeNews().mIncidents) {
            EXPECT_EQ(lrNow.mTitle == "as it was told", !lIsLost) << lrNow.mTitle;
        }
        EXPECT_TRUE(lFinder.ask({ZTSIncidentAsk::What::Keep, 7, sBegin + sDay, "", ""}) == lIsLost);
    }
}

// It was 2036 once, at the last boot: in the history, or while the finder looked on.
TEST(FinderGroups, AClockThatWasAheadHoldsNothingUp) {
    for (const bool lIsStored : {true, false}) {
        ZTCIncidentFinder lFinder(getDefaultRules());
        if (lIsStored) {
            lFinder.setStart({2, {}, {}, sBegin + 3650 * sDay});
        } else {
            lFinder.take(sSign(ZTESign::MediumError, sBegin + 3650 * sDay, 2));
            lFinder.advance(sBegin + 3650 * sDay + 60 * ZTSecond);
        }
        lFinder.advance(sBegin);
        lFinder.take(sSign(ZTESign::TargetLost, sBegin + ZTSecond, 1));
        lFinder.advance(sBegin + 60 * ZTSecond);
        EXPECT_EQ(lFinder.countOpen()[ZTEIncidentClass::TargetErrors], 1U) << lIsStored;
        lFinder.advance(sBegin + 1200 * ZTSecond);
        EXPECT_EQ(lFinder.countOpen()[ZTEIncidentClass::DeviceErrors], 0U);
    }
}
