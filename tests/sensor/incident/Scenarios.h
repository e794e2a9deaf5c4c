// The scenarios beside this file, and what came of one as few lines that a person reads.
#pragma once

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <fstream>
#include <set>
#include <sstream>

#include "PortText.h"
#include "SignStory.h"
#include "StorySite.h"
#include "TimeText.h"

/// A story, and behind a line "----" what is to come of it.
struct ZTSScenario {
    std::string mName;
    std::string mSite;  ///< its lines before the first moment
    std::string mRows;
    std::string mGolden;
    std::string mWhole;  ///< the file up to that line
    std::multiset<std::string> mEssences{};

    std::string getText() const { return mSite + mRows; }
    bool has(const std::string& acrVerb) const {
        return mRows.find(" " + acrVerb + " ") != std::string::npos;
    }
};

inline std::filesystem::path scenarioFolder() {
    return std::filesystem::path(ZT_SOURCE_DIR) / "tests/sensor/incident/scenarios";
}

inline ZTSScenario readScenario(const std::string& acrName) {
    std::ifstream lFile(scenarioFolder() / (acrName + ".rows"));
    std::stringstream lText;
    lText << lFile.rdbuf();
    const std::string lAll = lText.str();
    const std::size_t lRows = lAll.find("\nat ") + 1;
    const std::size_t lEnd = lAll.find("\n----\n", lRows);
    EXPECT_NE(lEnd, std::string::npos) << acrName;
    ZTSScenario lScenario{acrName, lAll.substr(0, lRows), lAll.substr(lRows, lEnd + 1 - lRows),
                          lAll.substr(lEnd + 6), lAll.substr(0, lEnd + 1)};
    if (lScenario.mSite.find("\nhost ") == std::string::npos) {
        lScenario.mSite += ZTUsualSite;
    }
    return lScenario;
}

inline std::vector<ZTSScenario> listScenarios() {
    std::set<std::string> lNames;
    for (const auto& lrEntry : std::filesystem::directory_iterator(scenarioFolder())) {
        lNames.insert(lrEntry.path().stem());
    }
    std::vector<ZTSScenario> lScenarios;
    std::ranges::transform(lNames, std::back_inserter(lScenarios), readScenario);
    return lScenarios;
}

/// The same at other ports, of which none is one of the first's; on its own fabrics, too, if need be.
inline std::string twinOf(const std::string& acrText, bool aHasOwnFabrics) {
    std::string lTwin;
    const auto lEndsWith = [&](const char* apWord) { return lTwin.ends_with(apWord); };
    for (const char lSign : acrText) {
        const bool lIsNumber =
            lEndsWith("hba") || lEndsWith("array") || lEndsWith("mpath") || lEndsWith("vg");
        const bool lIsFabric = aHasOwnFabrics && lEndsWith("fabric=");
        const bool lIsPoint = lEndsWith("mount=");
        lTwin += lIsPoint ? "/twin" : "";
        lTwin += static_cast<char>(lSign + (lIsNumber && isalnum(lSign) != 0 ? 4 : lIsFabric ? 2 : 0));
    }
    return lTwin;
}

inline std::string causeText(const ZTSIncidentCause& acrCause, const ZTPortLabels& acrLabels) {
    std::string lText = acrCause.mKind;
    for (const ZTSWwn& lrPort : {acrCause.mInitiator, acrCause.mTarget}) {
        lText += lrPort == ZTSWwn() ? "" : " " + portText(acrLabels, lrPort);
    }
    return lText + (acrCause.mFabric.empty() ? "" : " fabric=" + acrCause.mFabric);
}

/// What has to be the same however it was seen: all but times, sums, sentences and confidence.
inline std::string essenceOf(const ZTSIncident& acrIncident, const ZTPortLabels& acrLabels) {
    std::string lText = fmt::format("{} {} {}/{}\n  first {}\n", nameOf(acrIncident.mClass),
                                    nameOf(acrIncident.mState), acrIncident.mPathsLeft,
                                    acrIncident.mPathsTotal, causeText(acrIncident.mFirstCause, acrLabels));
    for (const ZTSIncidentCause& lrCause : acrIncident.mCauses) {
        lText += "  then " + causeText(lrCause, acrLabels) + "\n";
    }
    lText += "  at";
    for (const std::string& lrFabric : acrIncident.mFabrics) {
        lText += " fabric=" + lrFabric;
    }
    for (const auto* const lpPorts : {&acrIncident.mInitiators, &acrIncident.mTargets}) {
        std::set<std::string> lNames;
        for (const ZTSWwn& lrPort : *lpPorts) {
            lNames.insert(portText(acrLabels, lrPort));
        }
        lText += fmt::format(" {}", fmt::join(lNames, " "));
    }
    lText += fmt::format("\n  hits {}", fmt::join(acrIncident.mHits.mMaps, " "));
    for (const std::string& lrPoint : acrIncident.mHits.mMounts) {
        lText += " mount=" + lrPoint;
    }
    return lText + "\n";
}

/// Those that are part of no other one, sorted.
inline std::multiset<std::string> essencesOf(const ZTSStoryEnd& acrEnd) {
    std::multiset<std::string> lTexts;
    for (const ZTSIncident& lrIncident : acrEnd.mIncidents) {
        if (lrIncident.mMerged == 0) {
            lTexts.insert(essenceOf(lrIncident, acrEnd.mNames));
        }
    }
    return lTexts;
}

inline std::string momentText(ZTNanoseconds aTime) {
    return aTime == 0 ? "-" : plainText(toSensorTime(aTime), true).substr(0, 19);
}

/// All that a person gets to see of them.
inline std::string goldenOf(const ZTSStoryEnd& acrEnd) {
    static constexpr const char* sWhys[] = {"opened", "reopened", "worse", "closed"};
    std::string lText;
    for (const ZTSIncident& lrIncident : acrEnd.mIncidents) {
        lText += essenceOf(lrIncident, acrEnd.mNames);
        lText += fmt::format("  began {}, last {}, closed {}; first {} {}\n", momentText(lrIncident.mOpened),
                             momentText(lrIncident.mLast), momentText(lrIncident.mClosed),
                             lrIncident.mFirstCause.mIsLikely ? "likely" : "possible",
                             momentText(lrIncident.mFirstCause.mTime));
        for (const ZTSIncidentCause& lrCause : lrIncident.mCauses) {
            lText += fmt::format("  then {} {}\n", lrCause.mIsLikely ? "likely" : "possible",
                                 momentText(lrCause.mTime));
        }
        lText += lrIncident.mMerged != 0 ? fmt::format("  part of {}\n", lrIncident.mMerged) : "";
        lText += lrIncident.mSeries != 0 ? fmt::format("  series {}\n", lrIncident.mSeries) : "";
        lText += lrIncident.mWindow.empty() ? "" : "  in a window: " + lrIncident.mWindow + "\n";
        for (const auto& [lTime, lrTelling] : acrEnd.mTellings) {
            if (lrTelling.mIncident.mId == lrIncident.mId) {
                lText += fmt::format("  {} {}{}: {}\n", momentText(lTime),
                                     sWhys[static_cast<std::size_t>(lrTelling.mWhy)],
                                     lrTelling.mIsForCommand ? "!" : "", lrTelling.mIncident.mTitle);
            }
        }
        lText += "  " + lrIncident.mTitle + "\n  " + lrIncident.mSuggestion + "\n";
    }
    return lText;
}
