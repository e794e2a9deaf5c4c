#include "Absences.h"

#include "StoreLock.h"
#include "StoreRows.h"
#include "WhenText.h"

namespace {

// Between two of its runs, and behind the last one if that has ended.
void sReadAgent(ZTCStoreReader& arReader, ZTNanoseconds aNow, std::vector<ZTSAbsence>& arAbsences) {
    arAbsences = readAll<ZTSAbsence>(
        arReader,
        "SELECT coalesce(went, iif(next IS NULL, NULL, seen)), next FROM (SELECT id, went, seen, lead(came) OVER "
        "(ORDER BY id) AS next FROM agents) ORDER BY id",
        [&](SQLite::Statement& arRow) {
            const auto lTime = [&](int aAt) {
                return arRow.isColumnNull(aAt) ? aNow : arRow.getColumn(aAt).getInt64();
            };
            return ZTSAbsence{lTime(0), lTime(1), true};
        });
}

// Of one that was killed the next one tells, with when it had last written.
ZTNanoseconds sEndOf(SQLite::Statement& arWent) {
    const auto lSeen = readWhen(textAt(arWent, 2), 0, zoneOfUtc);
    return lSeen ? *lSeen : arWent.getColumn(0).getInt64();
}

// From an end to the next begin, those that are told from the last one before a time on.
void sReadSensor(ZTCStoreReader& arReader, ZTNanoseconds aSince, ZTNanoseconds aNow,
                 std::vector<ZTSAbsence>& arAbsences) {
    const std::string lFrom =
        " FROM changes INDEXED BY changes_of_sensor WHERE what = 'sensor' AND attribute = '' AND ";
    SQLite::Statement lRow(arReader.getDatabase(), "SELECT time, event, before" + lFrom +
                                                       "time >= coalesce((SELECT max(time)" + lFrom +
                                                       "time < ?1), 0) ORDER BY time, id");
    lRow.bind(1, aSince);
    ZTNanoseconds lWent = 0;  // 0: it runs
    while (lRow.executeStep()) {
        if (textAt(lRow, 1) == "went") {
            lWent = sEndOf(lRow);
        } else if (lWent != 0) {
            arAbsences.push_back({std::exchange(lWent, 0), lRow.getColumn(0).getInt64(), false});
        }
    }
    const ZTNanoseconds lWritten = arReader.readMeta("last_write");
    if (lWritten != 0 && !findStoreHolder(arReader.getPath()).mIsHere) {
        arAbsences.push_back({lWent != 0 ? lWent : lWritten, aNow, false});
    }
}

}  // namespace

std::vector<ZTSAbsence> readAbsences(ZTCStoreReader& arReader, ZTNanoseconds aSince, ZTNanoseconds aUntil,
                                     ZTNanoseconds aNow) {
    std::vector<ZTSAbsence> lAbsences;
    sReadAgent(arReader, aNow, lAbsences);
    storeCall(arReader.getPath(), [&] { sReadSensor(arReader, aSince, aNow, lAbsences); });
    std::erase_if(lAbsences, [&](const ZTSAbsence& acrAbsence) {
        return acrAbsence.mLast <= acrAbsence.mFirst || acrAbsence.mLast < aSince ||
               acrAbsence.mFirst > aUntil;
    });
    return lAbsences;
}
