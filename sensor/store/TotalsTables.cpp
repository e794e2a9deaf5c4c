#include "TotalsTables.h"

#include "EventBlock.h"
#include "HostRows.h"
#include "HostText.h"

namespace {

constexpr std::uint32_t sLastSenseKey = 15;
constexpr std::int64_t sNoSenseKey = -1;
constexpr std::int64_t sMostFpins = 20000;  // rows: what fabrics tell is theirs, and may name any port

}  // namespace

ZTCTotalsTables::ZTCTotalsTables(SQLite::Database& arDatabase)
    : mAddSense(
          arDatabase,
          "INSERT INTO sense_totals VALUES (?, ?, ?) ON CONFLICT DO UPDATE SET events = events + excluded.events"),
      mGrowFpin(
          arDatabase,
          "UPDATE fpin_totals SET times = times + ?5 WHERE initiator = ?1 AND target = ?2 AND descriptor "
          "= ?3 AND event = ?4"),
      mAddFpin(arDatabase,
               "INSERT INTO fpin_totals VALUES (?, ?, ?, ?, ?) ON CONFLICT DO UPDATE SET times = times + "
               "excluded.times"),
      mCountFpins(arDatabase, "SELECT count(*) FROM fpin_totals"),
      mAddIncident(
          arDatabase,
          "INSERT INTO incident_totals SELECT ?2, 1 WHERE NOT EXISTS (SELECT 1 FROM incidents WHERE id "
          "= ?1 AND class = ?2) ON CONFLICT DO UPDATE SET incidents = incidents + 1") {}

void ZTCTotalsTables::noteEvents(const ZTSRecord& acrRecord, std::uint64_t aEvents) {
    const ZTSSeries& lrSeries = acrRecord.mSeries;
    if (!hasSenseKey(lrSeries.mCategory, lrSeries.mSubcategory)) {
        return;
    }
    const auto lKey = findSenseKey(lrSeries.mCategory, lrSeries.mSubcategory, acrRecord.mData);
    mSenses[{lrSeries.mInitiator.mPort, lKey && *lKey <= sLastSenseKey ? *lKey : sNoSenseKey}] += aEvents;
}

void ZTCTotalsTables::countFpin(const ZTSFpin& acrFpin) {
    const std::string lInitiator = portText(acrFpin.mInitiator);
    const std::string lTarget = portText(portOf(acrFpin).value_or(ZTSWwn{}));
    if (mGrowFpin.run(lInitiator, lTarget, acrFpin.mDescriptor, acrFpin.mEvent, acrFpin.mTimes) == 0) {
        const bool lHasRoom = *mCountFpins.findNumber() < sMostFpins;
        mAddFpin.run(lInitiator, lHasRoom ? lTarget : std::string("*"), acrFpin.mDescriptor, acrFpin.mEvent,
                     acrFpin.mTimes);
    }
}

void ZTCTotalsTables::countIncident(std::uint64_t aId, const std::string& acrClass) {
    mAddIncident.run(aId, acrClass);
}

void ZTCTotalsTables::flush() {
    for (const auto& [lrKey, lEvents] : mSenses) {
        mAddSense.run(lrKey.first.toText(), lrKey.second, lEvents);
    }
    mSenses.clear();
}
