#include "IncidentTeller.h"

#include <algorithm>
#include <system_error>
#include <utility>

#include "IncidentJson.h"
#include "ServiceLog.h"
#include "ShownText.h"
#include "SnFigures.h"
#include "TimeText.h"

namespace {

// How each kind of news is told. The ids of messages are made up once and never change: who looks for one
// in the journal finds all of its kind (docs/sensor.md).
struct Kind {
    const char* mpWord;
    const char* mpMessageId;
    ZTEServiceLevel mLevel;
};
constexpr Kind sKinds[] = {
    // in the order of ZTSIncidentTelling::Why
    {"opened", "c32f1db5e48e4362a65171f034bfb201", ZTSL_Warning},
    {"reopened", "2351462a58fe44f18e1e073db19335ac", ZTSL_Warning},
    {"got worse", "efcdc28270fb4c5ba57106e6f75003ff", ZTSL_Error},
    {"closed", "d242849d31a54d3b9a08bd6050614b4d", ZTSL_Notice},
};

// Of longer documents the journal has no field: the history has them.
constexpr std::size_t sLongestField = std::size_t{48} << 10;
constexpr std::size_t sMostValues = 100;  // of a list

std::string sJsonOf(const ZTSIncident& acrIncident, const std::string& acrHost,
                    const ZTPortLabels& acrLabels) {
    std::string lText;
    ZTCJsonWriter lJson(lText);
    lJson.beginObject();
    putIncident(lJson, acrIncident, acrHost, acrLabels, {});
    lJson.endObject();
    return lText;
}

const std::string& sTextOf(const std::string& acrText) {
    return acrText;
}
std::string sTextOf(const ZTSWwn& acrPort) {
    return acrPort.toText();
}

// The first ones of very many.
template <class Value>
void sAddAll(ZTCJournalEntry& arEntry, const char* apName, const std::vector<Value>& acrValues) {
    for (std::size_t lAt = 0; lAt < std::min(acrValues.size(), sMostValues); ++lAt) {
        arEntry.add(apName, sTextOf(acrValues[lAt]));
    }
}

void sAddTime(ZTCJournalEntry& arEntry, const char* apName, ZTNanoseconds aTime) {
    aTime != 0 ? arEntry.add(apName, isoText(toSensorTime(std::chrono::system_clock::time_point(
                                         std::chrono::nanoseconds(aTime)))))
               : void();
}

ZTCJournalEntry sEntryOf(const ZTSIncident& acrIncident, const Kind& acrKind, const std::string& acrMessage,
                         const std::string& acrJson) {
    ZTCJournalEntry lEntry;
    lEntry.add("MESSAGE", acrMessage);
    lEntry.add("PRIORITY", static_cast<std::uint64_t>(acrKind.mLevel));
    lEntry.add("MESSAGE_ID", acrKind.mpMessageId);
    lEntry.add("SYSLOG_IDENTIFIER", "vrx-sn");
    lEntry.add("INCIDENT_ID", acrIncident.mId);
    lEntry.add("INCIDENT_CLASS", nameOf(acrIncident.mClass));
    lEntry.add("INCIDENT_STATE", nameOf(acrIncident.mState));
    lEntry.add("INCIDENT_TITLE", acrIncident.mTitle);
    sAddTime(lEntry, "INCIDENT_OPENED", acrIncident.mOpened);
    sAddTime(lEntry, "INCIDENT_LAST", acrIncident.mLast);
    sAddTime(lEntry, "INCIDENT_CLOSED", acrIncident.mClosed);
    sAddAll(lEntry, "INCIDENT_FABRIC", acrIncident.mFabrics);
    sAddAll(lEntry, "INCIDENT_INITIATOR", acrIncident.mInitiators);
    sAddAll(lEntry, "INCIDENT_TARGET", acrIncident.mTargets);
    sAddAll(lEntry, "INCIDENT_MAP", acrIncident.mHits.mMaps);
    sAddAll(lEntry, "INCIDENT_VOLUME", acrIncident.mHits.mVolumes);
    sAddAll(lEntry, "INCIDENT_MOUNT", acrIncident.mHits.mMounts);
    lEntry.add("INCIDENT_EVENTS", acrIncident.mEvents);
    lEntry.add("INCIDENT_FIRST_CAUSE", acrIncident.mFirstCause.mKind);
    lEntry.add("INCIDENT_CONFIDENCE", acrIncident.mFirstCause.mIsLikely ? "likely" : "possible");
    if (acrIncident.mPathsTotal != 0) {
        lEntry.add("INCIDENT_PATHS_LEFT", acrIncident.mPathsLeft);
        lEntry.add("INCIDENT_PATHS_TOTAL", acrIncident.mPathsTotal);
    }
    lEntry.add("INCIDENT_LOSSES", acrIncident.mLosses);
    acrIncident.mSeries != 0 ? lEntry.add("INCIDENT_SERIES", acrIncident.mSeries) : void();
    lEntry.add("INCIDENT_SUGGESTION", acrIncident.mSuggestion);
    acrJson.size() <= sLongestField ? lEntry.add("INCIDENT_JSON", acrJson) : void();
    return lEntry;
}

}  // namespace

ZTCIncidentTeller::ZTCIncidentTeller(std::string aHost, const std::string& acrJournal,
                                     ZTCSnFigures& arFigures, ZTCServiceLog& arLog,
                                     ZTCIncidentCommand& arCommand)
    : mHost(std::move(aHost)),
      mrFigures(arFigures),
      mrLog(arLog),
      mrCommand(arCommand),
      mJournal(acrJournal.empty() ? std::nullopt : std::optional<ZTCJournal>(std::in_place, acrJournal)) {}

void ZTCIncidentTeller::tell(const ZTSIncidentTelling& acrTelling, const ZTPortLabels& acrLabels) {
    const Kind& lrKind = sKinds[static_cast<std::size_t>(acrTelling.mWhy)];
    const ZTSIncident& lrIncident = acrTelling.mIncident;
    const std::string lTitle = toShownText(lrIncident.mTitle);
    std::string lJson = sJsonOf(lrIncident, mHost, acrLabels);
    const std::string lMessage =
        "incident " + std::to_string(lrIncident.mId) + " " + lrKind.mpWord + ": " + lTitle;
    if (!mJournal || !mJournal->send(sEntryOf(lrIncident, lrKind, lMessage, lJson))) {
        mrLog.note(lrKind.mLevel, "incident %llu %s: %s", static_cast<unsigned long long>(lrIncident.mId),
                   lrKind.mpWord, lTitle.c_str());
    }
    mrFigures.count(ZTSN_IncidentsTold, acrTelling.mWhy != ZTSIncidentTelling::Why::Closed ? 1 : 0);
    acrTelling.mIsForCommand ? tellCommand(std::move(lJson)) : void();
}

void ZTCIncidentTeller::tellCommand(std::string aJson) {
    try {
        mrCommand.run(std::move(aJson) + "\n");
    } catch (const std::system_error& lrError) {
        mrFigures.count(ZTSN_CommandsFailed);
        mrLog.note(ZTSL_Warning, "the command of --on-incident failed: %s", lrError.what());
    }
}
