#include "IncidentTables.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>

#include "IncidentRows.h"
#include "StoreBatch.h"
#include "StoreRequest.h"

namespace {

constexpr ZTNanoseconds sDay = 24 * 3600 * ZTSecond;
// A day more than is compared with, because the first of them is not whole.
constexpr std::int64_t sDaysBack = 8;

template <class Number>
std::optional<std::int64_t> sOrNull(Number aNumber, bool aIsThere) {
    return aIsThere ? std::optional(static_cast<std::int64_t>(aNumber)) : std::nullopt;
}

// As long as a record takes up what says the same.
constexpr ZTNanoseconds sGrowEvery = 10 * ZTSecond;

}  // namespace

ZTCIncidentTables::ZTCIncidentTables(SQLite::Database& arDatabase, ZTCTotalsTables& arTotals)
    : mrDatabase(arDatabase),
      mrTotals(arTotals),
      mSetIncident(
          arDatabase,
          "INSERT INTO incidents VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?) ON CONFLICT DO "
          "UPDATE SET class = excluded.class, state = excluded.state, title = excluded.title, opened = "
          "excluded.opened, last = excluded.last, closed = excluded.closed, merged = excluded.merged, series = "
          "excluded.series, events = excluded.events, paths_left = excluded.paths_left, paths_total = "
          "excluded.paths_total, kept = max(kept, excluded.kept), acknowledged_by = iif(excluded.acknowledged_at "
          "IS NULL, acknowledged_by, excluded.acknowledged_by), acknowledged_note = iif(excluded.acknowledged_at "
          "IS NULL, acknowledged_note, excluded.acknowledged_note), acknowledged_at = "
          "coalesce(excluded.acknowledged_at, acknowledged_at), body = excluded.body, memory = excluded.memory"),
      mAcknowledge(
          arDatabase,
          "UPDATE incidents SET acknowledged_by = ?2, acknowledged_at = ?3, acknowledged_note = ?4 WHERE "
          "id = ?1"),
      mKeep(arDatabase, "UPDATE incidents SET kept = 1 WHERE id = ?"),
      mKeepEvidence(arDatabase, "UPDATE incident_evidence SET kept = 1 WHERE incident = ? AND kept = 0"),
      mFindEvidence(arDatabase, (std::string(ZTEvidenceColumns) + " WHERE incident = ?").c_str()),
      mSetEvidence(arDatabase,
                   "INSERT INTO incident_evidence VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, (SELECT kept FROM "
                   "incidents WHERE id = ?1)) ON CONFLICT DO UPDATE SET last = excluded.last"),
      mNoEvidence(
          arDatabase,
          "DELETE FROM incident_evidence WHERE incident = ? AND category = ? AND subcategory = ? AND initiator "
          "= ? AND remote = ? AND fabric = ? AND first = ?"),
      mSetBaseline(arDatabase, "INSERT OR REPLACE INTO baselines VALUES (?, ?, ?, ?)"),
      mSetTo(arDatabase, "INSERT OR REPLACE INTO meta VALUES ('incidents_to', ?)"),
      mLastId(arDatabase,
              "INSERT INTO meta VALUES ('last_incident', ?) ON CONFLICT DO UPDATE SET value = max(value, "
              "excluded.value) WHERE value < excluded.value") {}

void ZTCIncidentTables::write(const ZTSIncidentNews& acrNews) {
    for (const ZTSIncident& lrIncident : acrNews.mIncidents) {
        writeIncident(lrIncident);
        writeEvidence(lrIncident);
    }
    for (const ZTSBaseline& lrBaseline : acrNews.mBaselines) {
        mSetBaseline.run(lrBaseline.mDay, lrBaseline.mKind, portText(lrBaseline.mPort), lrBaseline.mEvents);
    }
    if (acrNews.mTo != 0) {
        mSetTo.run(acrNews.mTo);
    }
}

void ZTCIncidentTables::writeIncident(const ZTSIncident& acrIncident) {
    const ZTSIncident& lrIncident = acrIncident;
    const ZTSAcknowledgement lAcknowledged = lrIncident.mAcknowledged.value_or(ZTSAcknowledgement{});
    const bool lHasPaths = lrIncident.mPathsTotal != 0;
    const std::string lClass = nameOf(lrIncident.mClass);
    mrTotals.countIncident(lrIncident.mId, lClass);
    mSetIncident.run(lrIncident.mId, lClass, std::string(nameOf(lrIncident.mState)), lrIncident.mTitle,
                     lrIncident.mOpened, lrIncident.mLast,
                     sOrNull(lrIncident.mClosed, lrIncident.mClosed != 0),
                     sOrNull(lrIncident.mMerged, lrIncident.mMerged != 0),
                     sOrNull(lrIncident.mSeries, lrIncident.mSeries != 0), lrIncident.mEvents,
                     sOrNull(lrIncident.mPathsLeft, lHasPaths), sOrNull(lrIncident.mPathsTotal, lHasPaths),
                     lrIncident.mIsKept, lAcknowledged.mWho,
                     sOrNull(lAcknowledged.mTime, lrIncident.mAcknowledged.has_value()), lAcknowledged.mNote,
                     incidentBody(lrIncident), lrIncident.mMemory);
    mLastId.run(lrIncident.mId);
    if (lrIncident.mIsKept) {
        mKeepEvidence.run(lrIncident.mId);
    }
}

bool ZTCIncidentTables::mark(const ZTSStoreRequest& acrRequest) {
    const std::string& lrSubject = acrRequest.mSubject;
    std::uint64_t lId = 0;
    const char* const lpEnd = lrSubject.data() + lrSubject.size();
    if (std::from_chars(lrSubject.data(), lpEnd, lId).ptr != lpEnd) {
        return false;
    }
    if (acrRequest.mWhat == "acknowledge") {
        return mAcknowledge.run(lId, acrRequest.mWho, acrRequest.mTime, acrRequest.mText) != 0;
    }
    if (acrRequest.mWhat == "keep") {
        mKeepEvidence.run(lId);
        return mKeep.run(lId) != 0;
    }
    return false;
}

ZTCIncidentTables::EvidenceEnds ZTCIncidentTables::endsOf(const ZTSIncident& acrIncident) {
    EvidenceEnds lEnds;
    for (const ZTSIncidentEvidence& lrRow : acrIncident.mEvidence) {
        ZTNanoseconds& lrEnd = lEnds.try_emplace(keyOf(lrRow), lrRow.mLast).first->second;
        lrEnd = std::max(lrEnd, lrRow.mLast);
    }
    return lEnds;
}

ZTCIncidentTables::Written& ZTCIncidentTables::writtenOf(std::uint64_t aId) {
    const auto [lAt, lIsNew] = mWritten.try_emplace(aId);
    if (lIsNew) {
        for (const ZTSIncidentEvidence& lrRow : loadEvidence(aId)) {
            lAt->second.mEnds.emplace(keyOf(lrRow), lrRow.mLast);
        }
    }
    return lAt->second;
}

// Where a storm goes on all of it grows with every second: that is written every few seconds, and with what
// comes of it in the end.
void ZTCIncidentTables::writeEvidence(const ZTSIncident& acrIncident) {
    Written& lrWritten = writtenOf(acrIncident.mId);
    const bool lIsOpen = acrIncident.mState == ZTEIncidentState::Open;
    const bool lWritesAll = !lIsOpen || std::abs(acrIncident.mLast - lrWritten.mTime) >= sGrowEvery;
    EvidenceEnds lEnds = endsOf(acrIncident);
    const auto lRun = [&](ZTCStatement& arStatement, const EvidenceKey& acrKey, const auto&... acrMore) {
        const auto& [lCategory, lSubcategory, lInitiator, lRemote, lFabric, lFirst] = acrKey;
        arStatement.run(acrIncident.mId, lCategory, lSubcategory, portText(lInitiator), portText(lRemote),
                        lFabric, lFirst, acrMore...);
    };
    for (auto& [lrKey, lrEnd] : lEnds) {
        const auto lAt = lrWritten.mEnds.find(lrKey);
        if (lAt == lrWritten.mEnds.end() || (lWritesAll && lAt->second != lrEnd)) {
            lRun(mSetEvidence, lrKey, lrEnd);
        } else {
            lrEnd = lAt->second;
        }
    }
    for (const auto& [lrKey, lEnd] : lrWritten.mEnds) {
        lEnds.contains(lrKey) ? void() : lRun(mNoEvidence, lrKey);
    }
    lrWritten = {std::move(lEnds), lWritesAll ? acrIncident.mLast : lrWritten.mTime};
    if (acrIncident.mState == ZTEIncidentState::Closed) {
        mWritten.erase(acrIncident.mId);
    }
}

std::vector<ZTSIncidentEvidence> ZTCIncidentTables::loadEvidence(std::uint64_t aId) {
    std::vector<ZTSIncidentEvidence> lEvidence;
    mFindEvidence.forEach([&](SQLite::Statement& arRow) { lEvidence.push_back(readStoredEvidence(arRow)); },
                          aId);
    return lEvidence;
}

void ZTCIncidentTables::loadIncidents(std::vector<ZTSIncident>& arIncidents, ZTNanoseconds aSince) {
    SQLite::Statement lRow(mrDatabase, std::string(ZTIncidentColumns) +
                                           " WHERE closed IS NULL OR closed >= ?1 OR last >= ?1 ORDER BY id");
    SQLite::Statement lMemory(mrDatabase, "SELECT memory FROM incidents WHERE id = ?");
    lRow.bind(1, aSince);
    while (lRow.executeStep()) {
        ZTSIncident& lrIncident = arIncidents.emplace_back(readStoredIncident(lRow));
        lrIncident.mEvidence = loadEvidence(lrIncident.mId);
        lMemory.bind(1, static_cast<std::int64_t>(lrIncident.mId));
        lMemory.executeStep();
        lrIncident.mMemory = textAt(lMemory, 0);
        lMemory.reset();
    }
}

// A clock that is ahead or behind at the start hides nothing of what was written last.
void ZTCIncidentTables::load(ZTSStoreStart& arStart, ZTNanoseconds aNow) {
    const ZTNanoseconds lSince = std::min(aNow, arStart.mLastWrite) - sDaysBack * sDay;
    ZTSIncidentStart& lrStart = arStart.mIncidents;
    const auto lMeta = [&](const char* apName) {
        SQLite::Statement lValue(mrDatabase, "SELECT value FROM meta WHERE name = ?");
        lValue.bind(1, apName);
        return lValue.executeStep() ? lValue.getColumn(0).getInt64() : 0;
    };
    lrStart.mNextId = static_cast<std::uint64_t>(lMeta("last_incident")) + 1;
    lrStart.mTo = lMeta("incidents_to");
    loadIncidents(lrStart.mIncidents, lSince);
    SQLite::Statement lRow(mrDatabase, "SELECT day, kind, port, events FROM baselines WHERE day >= ?");
    lRow.bind(1, lSince / sDay);
    while (lRow.executeStep()) {
        lrStart.mBaselines.push_back({lRow.getColumn(0), textAt(lRow, 1), wwnAt(lRow, 2), numberAt(lRow, 3)});
    }
}
