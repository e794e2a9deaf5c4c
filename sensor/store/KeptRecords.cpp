#include "KeptRecords.h"

#include <utility>
#include <vector>

ZTCKeptRecords::ZTCKeptRecords(SQLite::Database& arDatabase)
    : mAround(arDatabase, "SELECT last_id FROM kept WHERE first_id <= ? ORDER BY first_id DESC LIMIT 1"),
      mNext(arDatabase, "SELECT min(first_id) FROM kept WHERE first_id > ?"),
      mHasEvidence(
          arDatabase,
          "SELECT 1 FROM incident_evidence INDEXED BY incident_evidence_kept WHERE kept = 1 LIMIT 1"),
      mFindEvidence(
          arDatabase,
          "SELECT records.id FROM records JOIN series ON series.id = series WHERE records.id BETWEEN ? AND ? AND "
          "EXISTS (SELECT 1 FROM incident_evidence AS evidence INDEXED BY incident_evidence_kept WHERE kept = 1 "
          "AND evidence.remote = series.remote AND evidence.initiator = series.initiator AND evidence.category = "
          "series.category AND evidence.subcategory = series.subcategory AND evidence.fabric = series.fabric AND "
          "evidence.last >= records.first AND evidence.first <= records.first) ORDER BY records.id"),
      mGrow(
          arDatabase,
          "UPDATE kept SET last_id = ?2 WHERE first_id = (SELECT max(first_id) FROM kept WHERE first_id < ?1) "
          "AND last_id = ?1 - 1"),
      mAdd(arDatabase, "INSERT INTO kept VALUES (?, ?)") {}

std::optional<std::int64_t> ZTCKeptRecords::findEnd(std::int64_t aId) {
    const std::optional<std::int64_t> lEnd = mAround.findNumber(aId);
    return lEnd && *lEnd >= aId ? lEnd : std::nullopt;
}

bool ZTCKeptRecords::keepEvidence(std::int64_t aFirst, std::int64_t aLast) {
    if (!mHasEvidence.findNumber()) {
        return false;
    }
    std::vector<std::pair<std::int64_t, std::int64_t>> lRanges;
    mFindEvidence.forEach(
        [&](SQLite::Statement& arRow) {
            const std::int64_t lId = arRow.getColumn(0).getInt64();
            if (!lRanges.empty() && lRanges.back().second == lId - 1) {
                lRanges.back().second = lId;
            } else {
                lRanges.emplace_back(lId, lId);
            }
        },
        aFirst, aLast);
    for (const auto& [lFirst, lLast] : lRanges) {
        keep(lFirst, lLast);
    }
    return !lRanges.empty();
}

// What follows on another range is part of it.
void ZTCKeptRecords::keep(std::int64_t aFirst, std::int64_t aLast) {
    if (mGrow.run(aFirst, aLast) == 0) {
        mAdd.run(aFirst, aLast);
    }
}
