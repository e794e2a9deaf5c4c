#include "MeasureTables.h"

#include "HostRows.h"

namespace {

constexpr std::size_t sMostKnown = 20000;
constexpr std::int64_t sHour = 3600;

std::string sWith(const std::string& acrTable, const char* apValue) {
    return "UPDATE " + acrTable + " SET value = " + apValue +
           " WHERE time = ?1 AND measured = ?2 AND measure = ?3";
}

}  // namespace

ZTCMeasureTables::Table::Table(SQLite::Database& arDatabase, const std::string& acrName)
    : mAdd(arDatabase, sWith(acrName, "value + ?4").c_str()),
      mMost(arDatabase, sWith(acrName, "max(value, ?4)").c_str()),
      mNew(arDatabase, ("INSERT INTO " + acrName + " VALUES (?1, ?2, ?3, ?4)").c_str()) {}

ZTCMeasureTables::ZTCMeasureTables(SQLite::Database& arDatabase)
    : mMinutes(arDatabase, "measure_minutes"),
      mHours(arDatabase, "measure_hours"),
      mFindMeasured(arDatabase,
                    "SELECT id, last FROM measured WHERE initiator = ? AND remote = ? AND lun = ?"),
      mMakeMeasured(
          arDatabase,
          "INSERT INTO measured (initiator, remote, lun, last) VALUES (?, ?, ?, 0) RETURNING id, last"),
      mUseMeasured(arDatabase, "UPDATE measured SET last = ?2 WHERE id = ?1"),
      mFindKind(arDatabase, "SELECT id FROM measure WHERE name = ?"),
      mMakeKind(arDatabase, "INSERT INTO measure (name) VALUES (?) RETURNING id"),
      mCount(arDatabase,
             "INSERT INTO meta VALUES ('measures', ?) ON CONFLICT DO UPDATE SET value = value + "
             "excluded.value") {}

void ZTCMeasureTables::forget() {
    mMeasured.clear();
    mKinds.clear();
    mNewRows = 0;
}

ZTCMeasureTables::Measured& ZTCMeasureTables::findMeasured(const ZTSMeasured& acrWhose) {
    if (const auto lAt = mMeasured.find(acrWhose); lAt != mMeasured.end()) {
        return lAt->second;
    }
    Measured lMeasured;
    const auto lTake = [&](SQLite::Statement& arRow) {
        lMeasured = {arRow.getColumn(0).getInt64(), arRow.getColumn(1).getInt64()};
    };
    const std::string lInitiator = portText(acrWhose.mInitiator);
    const std::string lRemote = portText(acrWhose.mRemote);
    mFindMeasured.forEach(lTake, lInitiator, lRemote, acrWhose.mLun);
    if (lMeasured.mId == 0) {
        mMakeMeasured.forEach(lTake, lInitiator, lRemote, acrWhose.mLun);
    }
    if (mMeasured.size() >= sMostKnown) {
        mMeasured.clear();
    }
    return mMeasured[acrWhose] = lMeasured;
}

const ZTCMeasureTables::Kind& ZTCMeasureTables::findKind(const std::string& acrName) {
    if (const auto lAt = mKinds.find(acrName); lAt != mKinds.end()) {
        return lAt->second;
    }
    std::optional<std::int64_t> lId = mFindKind.findNumber(acrName);
    if (!lId) {
        lId = mMakeKind.findNumber(acrName);
    }
    const ZTSMeasureFacts* const lpFacts = findMeasure(acrName);
    return mKinds[acrName] = {*lId, lpFacts != nullptr && lpFacts->mSum == ZTEMeasureSum::Most};
}

void ZTCMeasureTables::add(Table& arTable, const ZTCMeasures::Key& acrKey, std::uint64_t aValue) {
    Measured& lrMeasured = findMeasured(acrKey.mWhose);
    const Kind& lrKind = findKind(acrKey.mName);
    ZTCStatement& lrAdd = lrKind.mIsMost ? arTable.mMost : arTable.mAdd;
    if (lrAdd.run(acrKey.mTime, lrMeasured.mId, lrKind.mId, aValue) == 0) {
        arTable.mNew.run(acrKey.mTime, lrMeasured.mId, lrKind.mId, aValue);
        ++mNewRows;
    }
    if (const std::int64_t lHour = acrKey.mTime - acrKey.mTime % sHour; lHour > lrMeasured.mLast) {
        mUseMeasured.run(lrMeasured.mId, lHour);
        lrMeasured.mLast = lHour;
    }
}

void ZTCMeasureTables::write(const ZTCMeasures& acrMeasures) {
    for (const auto& [lrKey, lValue] : acrMeasures.getValues()) {
        if (!lrKey.mIsHour) {
            add(mMinutes, lrKey, lValue);
        }
    }
    ZTCMeasures lHours = acrMeasures;
    lHours.coarsen();
    for (const auto& [lrKey, lValue] : lHours.getValues()) {
        add(mHours, lrKey, lValue);
    }
    if (mNewRows != 0) {
        mCount.run(mNewRows);
        mNewRows = 0;
    }
}
