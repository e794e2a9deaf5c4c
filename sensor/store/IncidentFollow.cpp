#include "IncidentFollow.h"

#include <algorithm>
#include <functional>
#include <string_view>

#include "IncidentRows.h"

namespace {

// What is closed may yet be acknowledged, kept, merged or opened again: it is looked at for so long.
constexpr ZTNanoseconds sLookedAt = 3600 * ZTSecond;
constexpr int sClosedAt = 6;  // of ZTIncidentColumns

// Of a row from its second column on.
std::size_t sPrintOf(SQLite::Statement& arRow) {
    std::size_t lPrint = 0;
    for (int lAt = 1; lAt < arRow.getColumnCount(); ++lAt) {
        const SQLite::Column lColumn = arRow.getColumn(lAt);
        const std::string_view lText(lColumn.getText(), static_cast<std::size_t>(lColumn.size()));
        lPrint = lPrint * 1'099'511'628'211U ^ std::hash<std::string_view>()(lText);
    }
    return lPrint;
}

}  // namespace

// What has come since counts even if it was closed long ago: it came late.
ZTCIncidentFollow::Looks ZTCIncidentFollow::look(ZTCStoreReader& arReader) {
    return storeCall(arReader.getPath(), [&] {
        const ZTCStoreSlice lSlice(arReader);
        if (const std::string lStore = arReader.readPlace().mStore; lStore != mStore) {
            mLast = mStore.empty() ? mLast : 0;
            mStore = lStore;
            mSeen.clear();
        }
        SQLite::Statement lRow(
            arReader.getDatabase(),
            std::string(ZTIncidentColumns) +
                " WHERE id IN (SELECT id FROM incidents INDEXED BY incidents_by_time WHERE "
                "closed IS NULL OR closed >= ?1 UNION SELECT id FROM incidents WHERE id > ?2)"
                " ORDER BY id");
        lRow.bind(1, mSince);
        lRow.bind(2, static_cast<std::int64_t>(mLast));
        Looks lLooks;
        while (lRow.executeStep()) {
            lLooks.emplace(numberAt(lRow, 0),
                           Look{sPrintOf(lRow), lRow.getColumn(sClosedAt).getInt64() != 0});
        }
        mLastThere = static_cast<std::uint64_t>(
            arReader.getDatabase().execAndGet("SELECT coalesce(max(id), 0) FROM incidents").getInt64());
        return lLooks;
    });
}

void ZTCIncidentFollow::skip(ZTCStoreReader& arReader) {
    take(look(arReader));
}

std::vector<ZTSIncident> ZTCIncidentFollow::read(ZTCStoreReader& arReader) {
    Looks lNow = look(arReader);
    std::vector<std::uint64_t> lChanged;
    for (const auto& [lId, lrLook] : lNow) {
        const auto lBefore = mSeen.find(lId);
        if (lBefore == mSeen.end() || lBefore->second.mPrint != lrLook.mPrint) {
            lChanged.push_back(lId);
        }
    }
    // What was closed as of a time before that which is looked at.
    for (const auto& [lId, lrLook] : mSeen) {
        if (!lrLook.mIsClosed && !lNow.contains(lId)) {
            lChanged.push_back(lId);
        }
    }
    std::ranges::sort(lChanged);
    std::vector<ZTSIncident> lIncidents;
    for (const std::uint64_t lId : lChanged) {
        if (auto lIncident = arReader.readIncident(lId)) {
            lIncidents.push_back(std::move(*lIncident));
        }
    }
    mSince = std::max(mSince, arReader.readMeta("last_write") - sLookedAt);
    take(std::move(lNow));
    return lIncidents;
}

void ZTCIncidentFollow::take(Looks aLooks) {
    mSeen = std::move(aLooks);
    mLast = mLastThere;
}
