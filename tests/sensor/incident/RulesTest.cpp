// The rules of incidents: their tables, what a site changes of them, and the page that shows them.
#include <fmt/format.h>

#include "IncidentStory.h"
#include "TestPages.h"

namespace {

constexpr char sPage[] = "docs/incidents.md";

std::string code(const char* apName) {
    return fmt::format("`{}`", apName);
}

/// "`queue_full=20/60`", with what has to be there or must not be.
std::string textOf(const ZTSOpening& acrOpening) {
    const char* const lpName = rowOf(acrOpening.mSign).mpName;
    std::string lText = acrOpening.mTimes == 1
                            ? code(lpName)
                            : fmt::format("`{}={}/{}`", lpName, acrOpening.mTimes, acrOpening.mWithin);
    if (acrOpening.mWith != ZTESign::Count) {
        lText += " with " + code(rowOf(acrOpening.mWith).mpName);
    }
    if (acrOpening.mUnless != ZTESign::Count) {
        lText += " unless " + code(rowOf(acrOpening.mUnless).mpName);
    }
    return lText + (acrOpening.mIsOfFabric ? " in one fabric" : "");
}

TEST(Rules, ArePrintedOnTheirPage) {
    const char* const lRestored[] = {"silence", "links", "ports", "targets", "paths", "disks", "collector"};
    std::vector<ZTTestTexts> lClasses;
    for (const ZTSClassRow& lrRow : getDefaultRules().mClasses) {
        std::vector<std::string> lOpenings;
        for (const ZTSOpening& lrOpening : lrRow.mOpenings) {
            if (lrOpening.mSign != ZTESign::Count) {
                lOpenings.push_back(textOf(lrOpening));
            }
        }
        lClasses.push_back({code(nameOf(lrRow.mClass)), fmt::format("{}", fmt::join(lOpenings, ", ")),
                            lRestored[static_cast<std::size_t>(lrRow.mRestored)],
                            std::to_string(lrRow.mPatience), lrRow.mHasBaseline ? "yes" : "no"});
    }
    std::vector<ZTTestTexts> lPage = rowsOf(sPage, "class | opens with | is over when | seconds | ordinary");
    std::ranges::for_each(lPage, [](ZTTestTexts& arRow) { arRow.resize(5); });
    EXPECT_EQ(lPage, lClasses);

    const char* const lWeights[] = {"weak", "strong", "state"};
    std::vector<ZTTestTexts> lSigns;
    for (std::size_t lAt = 0; lAt < static_cast<std::size_t>(ZTESign::Count); ++lAt) {
        const ZTSSignRow& lrRow = rowOf(static_cast<ZTESign>(lAt));
        EXPECT_EQ(findSign(lrRow.mpName), static_cast<ZTESign>(lAt));
        lSigns.push_back({code(lrRow.mpName), lrRow.mpText, lWeights[static_cast<std::size_t>(lrRow.mWeight)],
                          std::to_string(lrRow.mRank), std::to_string(lrRow.mBefore),
                          std::to_string(lrRow.mBehind)});
    }
    lPage = rowsOf(sPage, "sign | what it is | weight | rank | before | behind");
    std::ranges::for_each(lPage, [](ZTTestTexts& arRow) { arRow.resize(6); });
    EXPECT_EQ(lPage, lSigns);
}

TEST(Rules, HaveARowOfEachClassAndOneNumberOfEachOfItsSigns) {
    EXPECT_EQ(getDefaultRules().mClasses.size(), static_cast<std::size_t>(ZTEIncidentClass::Count));
    for (std::size_t lAt = 0; lAt < getDefaultRules().mClasses.size(); ++lAt) {
        const ZTSClassRow& lrRow = getDefaultRules()[static_cast<ZTEIncidentClass>(lAt)];
        ASSERT_EQ(lrRow.mClass, static_cast<ZTEIncidentClass>(lAt));
        std::map<ZTESign, std::pair<unsigned int, unsigned int>> lNumbers;
        for (const ZTSOpening& lrOpening : lrRow.mOpenings) {
            const std::pair lNumber(lrOpening.mTimes, lrOpening.mWithin);
            EXPECT_EQ(lNumbers.emplace(lrOpening.mSign, lNumber).first->second, lNumber)
                << nameOf(lrRow.mClass) << ": " << rowOf(lrOpening.mSign).mpName;
        }
    }
}

// Each opening alone gives its class a whole sentence, unless a class before it takes the case.
TEST(Rules, SayAWholeSentenceOfEachOpening) {
    const ZTSIncidentRules& lrRules = getDefaultRules();
    const ZTPortLabels lLabels;
    const std::deque<ZTSChange> lChanges;
    std::set<ZTEIncidentClass> lSeen;
    for (const ZTSClassRow& lrRow : lrRules.mClasses) {
        for (const ZTSOpening& lrOpening : lrRow.mOpenings) {
            if (lrOpening.mSign == ZTESign::Count) {
                continue;
            }
            ZTSCase lCase;
            ZTSCluster& lrCluster = lCase.mClusters.emplace_back();
            lrCluster.mFocus = {ZTEFocus::Pair, {{1}}, {{2}}, ""};
            for (const ZTESign lSign : {lrOpening.mSign, lrOpening.mWith}) {
                if (lSign != ZTESign::Count) {
                    ZTSSignSum& lrSum = lrCluster.mSums.emplace_back();
                    lrSum.mSign.mSign = lSign;
                    lrSum.mSign.mFirst = 1795230000 * ZTSecond;
                    lrSum.mSign.mLast = lrSum.mSign.mFirst + 900 * ZTSecond;
                    lrSum.mSign.mInitiator = {{1}};
                    lrSum.mSign.mRemote = {{2}};
                    lrSum.mSign.mDisk = "mpatha";
                    lCase.mReached.emplace(lrRow.mClass, lSign);
                }
            }
            if (lrRow.mRestored == ZTERestored::Ports) {
                lCase.mDown[{{1}}] = 1;
            }
            if (lrRow.mRestored == ZTERestored::Paths) {
                lCase.mMaps["mpatha"] = {4, 8, 4, 1, 0, 0, {}};
            }
            const ZTSStoryFrame lFrame{lrRules, lLabels, lChanges, 1795240000 * ZTSecond};
            const auto lClass = classOf(lCase, lFrame);
            ASSERT_TRUE(lClass) << textOf(lrOpening);
            lSeen.insert(*lClass);
            ZTSIncident lIncident;
            tellStory(lCase, lrRow.mClass, lFrame, lIncident);
            for (const std::string& lrText : {lIncident.mTitle, lIncident.mSuggestion}) {
                SCOPED_TRACE(textOf(lrOpening) + ": " + lrText);
                EXPECT_EQ(lrText.find_first_of("{}[]()|"), std::string::npos);
                EXPECT_EQ(lrText.find("  "), std::string::npos);
                EXPECT_EQ(lrText.find(" ,"), std::string::npos);
                EXPECT_TRUE(lrText.starts_with("mpatha") || std::islower(lrText.at(0)) == 0);
            }
            EXPECT_TRUE(contains(lIncident.mTitle, "2026-11-2") || lrRow.mRestored == ZTERestored::Paths)
                << lIncident.mTitle;
            EXPECT_FALSE(lIncident.mFirstCause.mKind.empty());
        }
    }
    EXPECT_EQ(lSeen.size(), lrRules.mClasses.size());
}

std::string refusalOf(ZTSIncidentRules& arRules, const std::string& acrLine) {
    try {
        applyRule(arRules, acrLine);
        return "";
    } catch (const std::runtime_error& lrError) {
        return lrError.what();
    }
}

TEST(Rules, AreChangedByLines) {
    ZTSIncidentRules lRules = getDefaultRules();
    const auto lOpeningOf = [&](ZTEIncidentClass aClass, ZTESign aSign) {
        return *std::ranges::find(lRules[aClass].mOpenings, aSign, &ZTSOpening::mSign);
    };
    applyRule(lRules, " overload\tqueue_full=200/30  busy=7 ");
    EXPECT_EQ(lOpeningOf(ZTEIncidentClass::Overload, ZTESign::QueueFull).mTimes, 200U);
    EXPECT_EQ(lOpeningOf(ZTEIncidentClass::Overload, ZTESign::QueueFull).mWithin, 30U);
    EXPECT_EQ(lOpeningOf(ZTEIncidentClass::Overload, ZTESign::Busy).mTimes, 7U);
    EXPECT_EQ(lOpeningOf(ZTEIncidentClass::Overload, ZTESign::Busy).mWithin, 60U);
    applyRule(lRules, "target_errors not_ready=50");
    for (const ZTSOpening& lrOpening : lRules[ZTEIncidentClass::TargetErrors].mOpenings) {
        EXPECT_TRUE(lrOpening.mSign != ZTESign::NotReady || lrOpening.mTimes == 50);
    }
    applyRule(lRules, "redundancy_lost patience=0 off");
    EXPECT_EQ(lRules[ZTEIncidentClass::RedundancyLost].mPatience, 0U);
    EXPECT_FALSE(lRules[ZTEIncidentClass::RedundancyLost].mIsOn);
    applyRule(lRules, "resets baseline=off");
    EXPECT_FALSE(lRules[ZTEIncidentClass::Resets].mHasBaseline);
    for (const ZTTestTexts& lrRow : rowsOf(sPage, "name | unless given | what it is")) {
        const std::string lName = lrRow[0].substr(1, lrRow[0].size() - 2);
        EXPECT_EQ(refusalOf(lRules, fmt::format("times {}={}", lName, lrRow[1])), "");
    }
    EXPECT_EQ(lRules.mTimes.mClose, getDefaultRules().mTimes.mClose);
    EXPECT_EQ(lRules.mTimes.mSeries, getDefaultRules().mTimes.mSeries);
    EXPECT_EQ(lRules.mTimes.mMostChanges, getDefaultRules().mTimes.mMostChanges);

    for (const char* const lpBad : {"",
                                    "  ",
                                    "overload",
                                    "trouble off",
                                    "overload loud",
                                    "overload queue_full",
                                    "overload queue_full=",
                                    "overload queue_full=0",
                                    "overload queue_full=1/0",
                                    "overload queue_full=1/",
                                    "overload queue_full=-1",
                                    "overload queue_full=99999999999",
                                    "overload queue_full=1/2/3",
                                    "overload reset=3",
                                    "overload =3",
                                    "overload nonsense=3",
                                    "port_down link_down=3",
                                    "redundancy_lost patience=1h",
                                    "resets baseline=maybe",
                                    "times",
                                    "times close",
                                    "times close=",
                                    "times forever=3",
                                    "times close=3x",
                                    "over\x1b[2Jload off"}) {
        ZTSIncidentRules lChanged = getDefaultRules();
        const std::string lRefusal = refusalOf(lChanged, lpBad);
        EXPECT_NE(lRefusal, "") << lpBad;
        EXPECT_EQ(lRefusal.find_first_of("\n\x1b"), std::string::npos) << lpBad;
    }
    // All of a line, or nothing.
    EXPECT_NE(refusalOf(lRules, "overload off queue_full=x"), "");
    EXPECT_TRUE(lRules[ZTEIncidentClass::Overload].mIsOn);
}

}  // namespace
