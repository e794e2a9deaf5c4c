#include "IncidentJson.h"

#include "RecordJson.h"

namespace {

// 0: there is none.
void sPutId(ZTCJsonWriter& arJson, const char* apKey, std::uint64_t aId) {
    arJson.key(apKey);
    aId != 0 ? arJson.number(aId) : arJson.null();
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
    putMoment(arJson, "time", acrCause.mTime);
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
    putList(arJson, "luns", acrHits.mLuns);
    putList(arJson, "disks", acrHits.mDisks);
    putList(arJson, "maps", acrHits.mMaps);
    putList(arJson, "volumes", acrHits.mVolumes);
    putList(arJson, "mounts", acrHits.mMounts);
    arJson.endObject();
}

void sPutSymptoms(ZTCJsonWriter& arJson, const std::vector<ZTSIncidentSymptom>& acrSymptoms) {
    arJson.key("symptoms");
    arJson.beginList();
    for (const ZTSIncidentSymptom& lrSymptom : acrSymptoms) {
        arJson.beginObject();
        putTexts(arJson, {{"kind", lrSymptom.mKind}});
        putNumber(arJson, "events", lrSymptom.mEvents);
        putMoment(arJson, "first", lrSymptom.mFirst);
        putMoment(arJson, "last", lrSymptom.mLast);
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
    putNumber(arJson, "left", acrIncident.mPathsLeft);
    putNumber(arJson, "total", acrIncident.mPathsTotal);
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
    putMoment(arJson, "when", acrAcknowledged->mTime);
    putTexts(arJson, {{"note", acrAcknowledged->mNote}});
    arJson.endObject();
}

}  // namespace

void putIncident(ZTCJsonWriter& arJson, const ZTSIncident& acrIncident, std::string_view aHost,
                 const ZTPortLabels& acrLabels, std::span<const std::uint64_t> aEvidence) {
    putNumber(arJson, "id", acrIncident.mId);
    putTexts(arJson, {{"class", nameOf(acrIncident.mClass)},
                      {"state", nameOf(acrIncident.mState)},
                      {"title", acrIncident.mTitle}});
    putMoment(arJson, "opened", acrIncident.mOpened);
    putMoment(arJson, "last", acrIncident.mLast);
    putMoment(arJson, "closed", acrIncident.mClosed);
    sPutId(arJson, "merged", acrIncident.mMerged);
    putList(arJson, "hosts", aHost.empty() ? std::vector<std::string>() : std::vector{std::string(aHost)});
    putList(arJson, "fabrics", acrIncident.mFabrics);
    sPutPorts(arJson, "initiators", acrIncident.mInitiators, acrLabels);
    sPutPorts(arJson, "targets", acrIncident.mTargets, acrLabels);
    sPutHits(arJson, acrIncident.mHits);
    putNumber(arJson, "events", acrIncident.mEvents);
    sPutCauses(arJson, acrIncident, acrLabels);
    sPutSymptoms(arJson, acrIncident.mSymptoms);
    sPutPaths(arJson, acrIncident);
    putNumber(arJson, "losses", acrIncident.mLosses);
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
