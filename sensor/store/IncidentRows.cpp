#include "IncidentRows.h"

#include <nlohmann/json.hpp>

#include "JsonWriter.h"

namespace {

using ZTJson = nlohmann::json;

// ---- From values: one sWrite() for each ----

void sWrite(ZTCJsonWriter& arJson, const std::string& acrText) {
    arJson.escapedText(acrText);
}
void sWrite(ZTCJsonWriter& arJson, const ZTSWwn& acrPort) {
    arJson.textOrNull(portText(acrPort));
}
void sWrite(ZTCJsonWriter& arJson, std::uint64_t aNumber) {
    arJson.number(aNumber);
}
void sWrite(ZTCJsonWriter& arJson, ZTNanoseconds aTime) {
    arJson.number(static_cast<std::uint64_t>(aTime));
}
void sWrite(ZTCJsonWriter& arJson, bool aValue) {
    arJson.boolean(aValue);
}

// ---- To values: one sRead() for each. Throws nlohmann's ----

void sRead(const ZTJson& acrJson, ZTSWwn& arPort) {
    arPort = acrJson.is_null() ? ZTSWwn{} : ZTSWwn::fromText(acrJson.get<std::string>()).value_or(ZTSWwn{});
}
template <class Value>
void sRead(const ZTJson& acrJson, Value& arValue) {
    acrJson.get_to(arValue);
}

// ---- Both ways: the members of each, once ----

// acrVisit(name, member) for each of them.
template <class Hits, class Visit>
requires std::same_as<std::remove_const_t<Hits>, ZTSIncidentHits>
void sVisit(Hits& arHits, const Visit& acrVisit) {
    acrVisit("luns", arHits.mLuns);
    acrVisit("disks", arHits.mDisks);
    acrVisit("maps", arHits.mMaps);
    acrVisit("volumes", arHits.mVolumes);
    acrVisit("mounts", arHits.mMounts);
}
template <class Cause, class Visit>
requires std::same_as<std::remove_const_t<Cause>, ZTSIncidentCause>
void sVisit(Cause& arCause, const Visit& acrVisit) {
    acrVisit("kind", arCause.mKind);
    acrVisit("initiator", arCause.mInitiator);
    acrVisit("target", arCause.mTarget);
    acrVisit("fabric", arCause.mFabric);
    acrVisit("time", arCause.mTime);
    acrVisit("likely", arCause.mIsLikely);
}
template <class Symptom, class Visit>
requires std::same_as<std::remove_const_t<Symptom>, ZTSIncidentSymptom>
void sVisit(Symptom& arSymptom, const Visit& acrVisit) {
    acrVisit("kind", arSymptom.mKind);
    acrVisit("events", arSymptom.mEvents);
    acrVisit("first", arSymptom.mFirst);
    acrVisit("last", arSymptom.mLast);
}
template <class Change, class Visit>
requires std::same_as<std::remove_const_t<Change>, ZTSChange>
void sVisit(Change& arChange, const Visit& acrVisit) {
    acrVisit("time", arChange.mTime);
    acrVisit("what", arChange.mWhat);
    acrVisit("name", arChange.mName);
    acrVisit("event", arChange.mEvent);
    acrVisit("attribute", arChange.mAttribute);
    acrVisit("before", arChange.mBefore);
    acrVisit("after", arChange.mAfter);
}
template <class Incident, class Visit>
requires std::same_as<std::remove_const_t<Incident>, ZTSIncident>
void sVisit(Incident& arIncident, const Visit& acrVisit) {
    acrVisit("fabrics", arIncident.mFabrics);
    acrVisit("initiators", arIncident.mInitiators);
    acrVisit("targets", arIncident.mTargets);
    acrVisit("hits", arIncident.mHits);
    acrVisit("first_cause", arIncident.mFirstCause);
    acrVisit("causes", arIncident.mCauses);
    acrVisit("symptoms", arIncident.mSymptoms);
    acrVisit("losses", arIncident.mLosses);
    acrVisit("changes", arIncident.mChanges);
    acrVisit("suggestion", arIncident.mSuggestion);
    acrVisit("window", arIncident.mWindow);
}

struct Writer {
    ZTCJsonWriter& mrJson;

    template <class Value>
    void operator()(const char* apName, const Value& acrValue) const {
        mrJson.key(apName);
        write(acrValue);
    }
    template <class Value>
    void write(const Value& acrValue) const {
        if constexpr (requires { sWrite(mrJson, acrValue); }) {
            sWrite(mrJson, acrValue);
        } else {
            mrJson.beginObject();
            sVisit(acrValue, *this);
            mrJson.endObject();
        }
    }
    template <class Item>
    void write(const std::vector<Item>& acrItems) const {
        mrJson.beginList();
        for (const Item& lrItem : acrItems) {
            write(lrItem);
        }
        mrJson.endList();
    }
};

struct Reader {
    const ZTJson& mrJson;

    template <class Value>
    void operator()(const char* apName, Value& arValue) const {
        if (const auto lAt = mrJson.find(apName); lAt != mrJson.end()) {
            read(*lAt, arValue);
        }
    }
    template <class Value>
    static void read(const ZTJson& acrJson, Value& arValue) {
        if constexpr (requires { sVisit(arValue, Reader{acrJson}); }) {
            sVisit(arValue, Reader{acrJson});
        } else {
            sRead(acrJson, arValue);
        }
    }
    template <class Item>
    static void read(const ZTJson& acrJson, std::vector<Item>& arItems) {
        for (const ZTJson& lrItem : acrJson) {
            read(lrItem, arItems.emplace_back());
        }
    }
};

}  // namespace

std::string incidentBody(const ZTSIncident& acrIncident) {
    std::string lBody;
    ZTCJsonWriter lJson(lBody);
    Writer{lJson}.write(acrIncident);
    return lBody;
}

ZTSIncident readStoredIncident(SQLite::Statement& arRow) {
    ZTSIncident lIncident;
    lIncident.mId = numberAt(arRow, 0);
    lIncident.mClass = findIncidentClass(textAt(arRow, 1)).value_or(lIncident.mClass);
    lIncident.mState = findIncidentState(textAt(arRow, 2)).value_or(lIncident.mState);
    lIncident.mTitle = textAt(arRow, 3);
    lIncident.mOpened = arRow.getColumn(4);
    lIncident.mLast = arRow.getColumn(5);
    lIncident.mClosed = arRow.getColumn(6);
    lIncident.mMerged = numberAt(arRow, 7);
    lIncident.mSeries = numberAt(arRow, 8);
    lIncident.mEvents = numberAt(arRow, 9);
    lIncident.mPathsLeft = arRow.getColumn(10).getUInt();
    lIncident.mPathsTotal = arRow.getColumn(11).getUInt();
    lIncident.mIsKept = arRow.getColumn(12).getInt() != 0;
    if (!arRow.isColumnNull(14)) {
        lIncident.mAcknowledged = {textAt(arRow, 13), arRow.getColumn(14), textAt(arRow, 15)};
    }
    try {
        Reader::read(ZTJson::parse(textAt(arRow, 16)), lIncident);
    } catch (const ZTJson::exception&) {
        return lIncident;  // somebody else has written it
    }
    return lIncident;
}

ZTSIncidentEvidence readStoredEvidence(SQLite::Statement& arRow) {
    const auto lKind = [&](int aAt) { return static_cast<std::uint8_t>(arRow.getColumn(aAt).getInt()); };
    return {lKind(0),         lKind(1),           wwnAt(arRow, 2),   wwnAt(arRow, 3),
            textAt(arRow, 4), arRow.getColumn(5), arRow.getColumn(6)};
}
