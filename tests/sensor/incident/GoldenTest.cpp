// Each scenario is the incident that a person would tell of, however its rows come.
#include <gtest/gtest.h>

#include <regex>

#include "Scenarios.h"
#include "TestSupport.h"

namespace {

// Of a fabric as a whole: what else happens there may be a part of it.
bool sIsOfFabric(const ZTSScenario& acrScenario) {
    return std::set<std::string>{"equal-addresses", "fabric-change", "fabric-outage", "forgotten-zoning",
                                 "slow-drain"}
        .contains(acrScenario.mName);
}

// An incident that is asked for by its id, and the agent of the host, are there once.
bool sHasPair(const ZTSScenario& acrOne, const ZTSScenario& acrOther, bool aHasOwnFabrics) {
    const auto lBothHave = [&](const char* apVerb) { return acrOne.has(apVerb) && acrOther.has(apVerb); };
    const auto lOneHas = [&](const char* apVerb) { return acrOne.has(apVerb) || acrOther.has(apVerb); };
    return !lOneHas("ask") && !lOneHas("sensor-gone") && !lBothHave("agent-gone") &&
           (aHasOwnFabrics || (!sIsOfFabric(acrOne) && !sIsOfFabric(acrOther)));
}

// Both on one site: the other one on fabrics of its own, or in zones of its own.
void sExpectBoth(const ZTSScenario& acrOne, const ZTSScenario& acrOther, bool aHasOwnFabrics) {
    SCOPED_TRACE(acrOne.mName + " and " + acrOther.mName + (aHasOwnFabrics ? "" : " on the same fabrics"));
    auto lExpected = acrOne.mEssences;
    for (const std::string& lrEssence : acrOther.mEssences) {
        lExpected.insert(twinOf(lrEssence, aHasOwnFabrics));
    }
    std::string lTwinSite = twinOf(acrOther.mSite, aHasOwnFabrics);
    if (!aHasOwnFabrics) {
        lTwinSite = std::regex_replace(lTwinSite, std::regex("fabric="), "zone=twin fabric=");
    }
    ZTCSignStory lBoth(acrOne.mSite + lTwinSite + acrOne.mRows);
    lBoth.add(twinOf(acrOther.mRows, aHasOwnFabrics), {}, lBoth.getBegin());
    EXPECT_EQ(essencesOf(lBoth.play()), lExpected);
}

// Two kinds of row, by their verbs.
std::map<std::string, ZTNanoseconds> sPickShift(const ZTSScenario& acrScenario, std::mt19937& arRandom) {
    std::vector<std::string> lVerbs;
    std::istringstream lRows(acrScenario.mRows);
    for (std::string lLine; std::getline(lRows, lLine);) {
        std::istringstream lWords(lLine);
        std::string lTime;
        std::string lVerb;
        if (lLine.starts_with('+') && lWords >> lTime >> lVerb && lVerb != "end" && lVerb != "ask") {
            lVerbs.push_back(lVerb);
        }
    }
    return {{lVerbs[arRandom() % lVerbs.size()], ZTSecond}, {lVerbs[arRandom() % lVerbs.size()], -ZTSecond}};
}

std::vector<ZTSIncident> sIncidentsOf(const ZTSStoryEnd& acrEnd) {
    auto lIncidents = acrEnd.mIncidents;
    for (ZTSIncident& lrIncident : lIncidents) {
        lrIncident.mMemory.clear();
    }
    return lIncidents;
}

}  // namespace

// With ZT_GOLDENS=write the texts are written anew, for somebody to read them and to agree.
TEST(Golden, EachScenarioIsTheIncidentThatItIs) {
    const char* const lpMode = getenv("ZT_GOLDENS");
    for (const ZTSScenario& lrScenario : listScenarios()) {
        SCOPED_TRACE(lrScenario.mName);
        const std::string lGolden = goldenOf(ZTCSignStory(lrScenario.getText()).play());
        if (lpMode != nullptr && std::string_view(lpMode) == "write") {
            std::ofstream(scenarioFolder() / (lrScenario.mName + ".rows")) << lrScenario.mWhole << "----\n"
                                                                           << lGolden;
        }
        EXPECT_EQ(lGolden, lrScenario.mGolden);
    }
}

TEST(Golden, TwoAtOnceAreTwo) {
    std::vector<ZTSScenario> lScenarios = listScenarios();
    for (ZTSScenario& lrScenario : lScenarios) {
        lrScenario.mEssences = essencesOf(ZTCSignStory(lrScenario.getText()).play());
    }
    for (auto lOne = lScenarios.begin(); lOne != lScenarios.end(); ++lOne) {
        for (auto lOther = lOne; lOther != lScenarios.end(); ++lOther) {
            for (const bool lHasOwnFabrics : {true, false}) {
                const bool lIsTurn =
                    ((lOther - lOne) % 2 == 0) == lHasOwnFabrics || ZTTestRounds(false, true);
                if (lIsTurn && sHasPair(*lOne, *lOther, lHasOwnFabrics)) {
                    sExpectBoth(*lOne, *lOther, lHasOwnFabrics);
                }
            }
        }
    }
}

// Shuffled within their fetches, in other fetches, the clocks of two kinds of row off by a second: what was
// likely may be possible then, and nothing else.
TEST(Golden, OrderDoesNotMatter) {
    for (const ZTSScenario& lrScenario : listScenarios()) {
        const ZTCSignStory lStory(lrScenario.getText());
        const ZTSStoryEnd lUsual = lStory.play();
        for (unsigned int lSeed = 1; lSeed <= ZTTestRounds(4U, 200U); ++lSeed) {
            std::mt19937 lRandom(lSeed);
            ZTSStoryPlay lPlay{
                std::array{ZTSecond / 4, ZTSecond, 5 * ZTSecond / 2}[lRandom() % 3], lSeed, {}};
            lPlay.mShift = lSeed % 2 == 0 ? sPickShift(lrScenario, lRandom) : lPlay.mShift;
            lPlay.mLate = lSeed % 4 == 1 ? 15 * ZTSecond : 0;
            SCOPED_TRACE(fmt::format("{}, seed {}", lrScenario.mName, lSeed));
            const ZTSStoryEnd lEnd = lStory.play(lPlay);
            EXPECT_EQ(essencesOf(lEnd), essencesOf(lUsual));
            for (std::size_t lAt = 0; lAt < std::min(lEnd.mIncidents.size(), lUsual.mIncidents.size());
                 ++lAt) {
                EXPECT_LE(lEnd.mIncidents[lAt].mFirstCause.mIsLikely,
                          lUsual.mIncidents[lAt].mFirstCause.mIsLikely);
            }
        }
    }
}

TEST(Golden, StepByStepIsAsInOneGo) {
    for (const ZTSScenario& lrScenario : listScenarios()) {
        SCOPED_TRACE(lrScenario.mName);
        const ZTCSignStory lStory(lrScenario.getText());
        const auto lUsual = sIncidentsOf(lStory.play());
        // What is asked for has to be there.
        const ZTNanoseconds lAll = lrScenario.has("ask") ? 60 * ZTSecond : 0;
        for (const ZTNanoseconds lFetch : {lAll, ZTSecond / 3, 7 * ZTSecond}) {
            EXPECT_EQ(sIncidentsOf(lStory.play({lFetch, 0, {}})), lUsual) << lFetch;
        }
    }
}

TEST(Golden, ANewStartChangesNothing) {
    for (const ZTSScenario& lrScenario : listScenarios()) {
        const ZTCSignStory lStory(lrScenario.getText());
        const ZTSStoryEnd lUsual = lStory.play();
        for (unsigned int lSeed = 1; lSeed <= ZTTestRounds(4U, 200U); ++lSeed) {
            SCOPED_TRACE(fmt::format("{}, seed {}", lrScenario.mName, lSeed));
            std::mt19937 lRandom(lSeed);
            ZTSStoryPlay lPlay;
            for (unsigned int lStart = 0; lStart < 3; ++lStart) {
                const ZTNanoseconds lSpan =
                    lStart == 0 ? lStory.getEnd() - lStory.getBegin() : 300 * ZTSecond;
                lPlay.mColdStarts.push_back(lStory.getBegin() +
                                            static_cast<ZTNanoseconds>(lRandom() % 1000) * lSpan / 1000);
            }
            std::ranges::sort(lPlay.mColdStarts);
            EXPECT_EQ(goldenOf(lStory.play(lPlay)), goldenOf(lUsual));
        }
    }
}

// 50 harmless events a second over 64 ports, before and all the time.
TEST(Golden, NoiseChangesNothing) {
    for (const ZTSScenario& lrScenario : listScenarios()) {
        SCOPED_TRACE(lrScenario.mName);
        std::string lNoisy = lrScenario.getText();
        lNoisy.insert(lNoisy.find('\n', lNoisy.find("\nat ") + 1) + 1,
                      fmt::format("+0s noise 50 for={}s\n", ZTTestRounds(60, 900)));
        EXPECT_EQ(essencesOf(ZTCSignStory(lNoisy).play()),
                  essencesOf(ZTCSignStory(lrScenario.getText()).play()));
    }
}
