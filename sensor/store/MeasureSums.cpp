#include "MeasureSums.h"

#include "StoreRows.h"

bool readMeasureSums(ZTCStoreReader& arReader, ZTEStoreBin aBin, const ZTSCountSpan& acrSpan,
                     const ZTTakeMeasure& acrTake) {
    const std::string lTable = aBin == ZTEStoreBin::Minute ? "measure_minutes" : "measure_hours";
    return storeCall(arReader.getPath(), [&] {
        SQLite::Statement lRow(
            arReader.getDatabase(),
            "SELECT time, measured, measure, value FROM " + lTable +
                " WHERE (time, measured, measure) > (?1, ?2, ?3) AND time < ?4 ORDER BY time, measured, measure");
        constexpr std::int64_t lBehindAll = std::numeric_limits<std::int64_t>::max();
        std::int64_t lAt[] = {acrSpan.mFrom - 1, lBehindAll, lBehindAll};
        std::uint64_t lRows = 0;
        for (bool lIsMore = true; lIsMore && lRows <= acrSpan.mMost;) {
            ZTCStoreSlice lSlice(arReader);
            for (int lColumn = 0; lColumn < 3; ++lColumn) {
                lRow.bind(lColumn + 1, lAt[lColumn]);
            }
            lRow.bind(4, acrSpan.mTo);
            while ((lIsMore = lRow.executeStep()) && ++lRows <= acrSpan.mMost) {
                for (int lColumn = 0; lColumn < 3; ++lColumn) {
                    lAt[lColumn] = lRow.getColumn(lColumn).getInt64();
                }
                acrTake(lAt[0], lAt[1], lAt[2], numberAt(lRow, 3));
                if (lSlice.isEnough()) {
                    break;
                }
            }
            lRow.reset();
        }
        return lRows <= acrSpan.mMost;
    });
}

std::vector<ZTSMeasuredRow> readMeasured(ZTCStoreReader& arReader) {
    return readAll<ZTSMeasuredRow>(
        arReader, "SELECT id, initiator, remote, lun FROM measured", [](SQLite::Statement& arRow) {
            return ZTSMeasuredRow{arRow.getColumn(0).getInt64(),
                                  {wwnAt(arRow, 1), wwnAt(arRow, 2), textAt(arRow, 3)}};
        });
}

std::unordered_map<std::int64_t, std::string> readMeasureNames(ZTCStoreReader& arReader) {
    std::unordered_map<std::int64_t, std::string> lNames;
    for (auto& [lId, lName] : readAll<std::pair<std::int64_t, std::string>>(
             arReader, "SELECT id, name FROM measure", [](SQLite::Statement& arRow) {
                 return std::pair(arRow.getColumn(0).getInt64(), textAt(arRow, 1));
             })) {
        lNames.emplace(lId, std::move(lName));
    }
    return lNames;
}
