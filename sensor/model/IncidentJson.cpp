#include "IncidentJson.h"

#include "RecordJson.h"

namespace {

void sPutTexts(ZTCJsonWriter& arJson, const char* apKey, const std::vector<std::string>& acrTexts) {
    arJson.key(apKey);
    arJson.beginList();
    for (const std::string& lrText : acrTexts) {
        arJson.escapedText(lrText);
    }
    arJson.endList();
}

void sPutNumber(ZTCJsonWriter& arJson, const char* apKey, std::uint64_t aNumber) {
    arJson.key(apKey);
    arJson.number(aNumber);
}

// 0: there is none.
void sPutId(ZTCJsonWriter& arJson, const char* apKey, std::uint64_t aId) {
    arJson.key(apKey);
    aId != 0 ? arJson.number(aId) : arJson.null();
}

void sPutTime(ZTCJsonWriter& arJson, const char* apKey, ZTNanoseconds aTime) {
    arJson.key(apKey);
    aTime != 0 ? putTime(arJson, toSensorTime(aTime)) : arJson.null();
}

void sPutPort(ZTCJsonWriter& arJson, const char* apKey, const ZTSWwn& acrPort,
              const ZTPortLabels& acrLabels) {
    arJson.key(apKey);
    putPort(arJson, acrPort != ZTSWwn() ? std::optional(acrPort) : std::nullopt, acrLabels);
}

void sPutPorts(ZTCJsonWriter& arJson, const char* apKey, const std::vector<ZTSWwn>& acrPorts,
               const ZTPortLabels& acrLabels) {
    arJson.key(apKey);
    putPorts(arJson, acrPorts, acrLabels);
}

void sPutCause(ZTCJsonWriter& arJson, const ZTSIncidentCause& acrCause, const ZTPortLabels& acrLabels) {
    if (acrCause.mKind.empty()) {
        arJson.null();
        return;
    }
    arJson.beginObject();
    putTexts(arJson, {{"kind", acrCause.mKind}});
    sPutPort(arJson, "initiator", acrCause.mInitiator, acrLabels);
    sPutPort(arJson, "target", acrCause.mTarget, acrLabels);
    putTexts(arJson, {{"fabric", acrCause.mFabric}});
    sPutTime(arJson, "time", acrCause.mTime);
    putTexts(arJson, {{"confidence", acrCause.mIsLikely ? "likely" : "possible"}});
    arJson.endObject();
}

void sPutCauses(ZTCJsonWriter& arJson, const ZTSIncident& acrIncident, const ZTPortLabels& acrLabels) {
    arJson.key("first_cause");
    sPutCause(arJson, acrIncident.mFirstCause, acrLabels);
    arJson.key("causes");
    arJson.beginList();
    for (const ZTSIncidentCause& lrCause : acrIncident.mCauses) {
        sPutCause(arJson, lrCause, acrLabels);
    }
    arJson.endList();
}

void sPutHits(ZTCJsonWriter& arJson, const ZTSIncidentHits& acrHits) {
    arJson.key("hits");
    arJson.beginObject();
    sPutTexts(arJson, "luns", acrHits.mLuns);
    sPutTexts(arJson, "disks", acrHits.mDisks);
    sPutTexts(arJson, "maps", acrHits.mMaps);
    sPutTexts(arJson, "volumes", acrHits.mVolumes);
    sPutTexts(arJson, "mounts", acrHits.mMounts);
    arJson.endObject();
}

void sPutSymptoms(ZTCJsonWriter& arJson, const std::vector<ZTSIncidentSymptom>& acrSymptoms) {
    arJson.key("symptoms");
    arJson.beginList();
    for (const ZTSIncidentSymptom& lrSymptom : acrSymptoms) {
        arJson.beginObject();
        putTexts(arJson, {{"kind", lrSymptom.mKind}});
        sPutNumber(arJson, "events", lrSymptom.mEvents);
        sPutTime(arJson, "first", lrSymptom.mFirst);
        sPutTime(arJson, "last", lrSymptom.mLast);
        arJson.endObject();
    }
    arJson.endList();
}

void sPutPaths(ZTCJsonWriter& arJson, const ZTSIncident& acrIncident) {
    arJson.key("paths");
    if (acrIncident.mPathsTotal == 0) {
        arJson.null();
        return;
    }
    arJson.beginObject();
    sPutNumber(arJson, "left", acrIncident.mPathsLeft);
    sPutNumber(arJson, "total", acrIncident.mPathsTotal);
    arJson.endObject();
}

void sPutChanges(ZTCJsonWriter& arJson, const std::vector<ZTSChange>& acrChanges,
                 const ZTPortLabels& acrLabels, std::string_view aHost) {
    arJson.key("changes");
    arJson.beginList();
    for (const ZTSChange& lrChange : acrChanges) {
        arJson.beginObject();
        putChange(arJson, lrChange, acrLabels, aHost);
        arJson.endObject();
    }
    arJson.endList();
}

void sPutAcknowledged(ZTCJsonWriter& arJson, const std::optional<ZTSAcknowledgement>& acrAcknowledged) {
    arJson.key("acknowledged");
    if (!acrAcknowledged) {
        arJson.null();
        return;
    }
    arJson.beginObject();
    putTexts(arJson, {{"who", acrAcknowledged->mWho}});
    sPutTime(arJson, "when", acrAcknowledged->mTime);
    putTexts(arJson, {{"note", acrAcknowledged->mNote}});
    arJson.endObject();
}

}  // namespace

void putIncident(ZTCJsonWriter& arJson, const ZTSIncident& acrIncident, std::string_view aHost,
                 const ZTPortLabels& acrLabels, std::span<const std::uint64_t> aEvidence) {
    sPutNumber(arJson, "id", acrIncident.mId);
    putTexts(arJson, {{"class", nameOf(acrIncident.mClass)},
                      {"state", nameOf(acrIncident.mState)},
                      {"title", acrIncident.mTitle}});
    sPutTime(arJson, "opened", acrIncident.mOpened);
    sPutTime(arJson, "last", acrIncident.mLast);
    sPutTime(arJson, "closed", acrIncident.mClosed);
    sPutId(arJson, "merged", acrIncident.mMerged);
    sPutTexts(arJson, "hosts", aHost.empty() ? std::vector<std::string>() : std::vector{std::string(aHost)});
    sPutTexts(arJson, "fabrics", acrIncident.mFabrics);
    sPutPorts(arJson, "initiators", acrIncident.mInitiators, acrLabels);
    sPutPorts(arJson, "targets", acrIncident.mTargets, acrLabels);
    sPutHits(arJson, acrIncident.mHits);
    sPutNumber(arJson, "events", acrIncident.mEvents);
    sPutCauses(arJson, acrIncident, acrLabels);
    sPutSymptoms(arJson, acrIncident.mSymptoms);
    sPutPaths(arJson, acrIncident);
    sPutNumber(arJson, "losses", acrIncident.mLosses);
    arJson.key("evidence");
    arJson.beginList();
    for (const std::uint64_t lId : aEvidence) {
        arJson.number(lId);
    }
    arJson.endList();
    sPutChanges(arJson, acrIncident.mChanges, acrLabels, aHost);
    putTexts(arJson, {{"suggestion", acrIncident.mSuggestion}});
    sPutId(arJson, "series", acrIncident.mSeries);
    sPutAcknowledged(arJson, acrIncident.mAcknowledged);
    putTexts(arJson, {{"window", acrIncident.mWindow}});
    arJson.key("kept");
    arJson.boolean(acrIncident.mIsKept);
}
