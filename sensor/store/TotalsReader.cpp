// What was counted for good, as it is read.
#include "StoreRows.h"

std::vector<ZTSLossTotal> ZTCStoreReader::readLossTotals() {
    return readAll<ZTSLossTotal>(
        *this, "SELECT source, reason, events, unknown FROM loss_totals", [](SQLite::Statement& arRow) {
            return ZTSLossTotal{textAt(arRow, 0), textAt(arRow, 1), numberAt(arRow, 2), numberAt(arRow, 3)};
        });
}

std::vector<ZTSSenseTotal> ZTCStoreReader::readSenseTotals() {
    return readAll<ZTSSenseTotal>(
        *this, "SELECT initiator, iif(sense_key < 0, NULL, sense_key), events FROM sense_totals",
        [](SQLite::Statement& arRow) {
            return ZTSSenseTotal{wwnAt(arRow, 0), smallNumberAt(arRow, 1), numberAt(arRow, 2)};
        });
}

// The rest of very many names no port either.
std::vector<ZTSFpinTotal> ZTCStoreReader::readFpinTotals() {
    return readAll<ZTSFpinTotal>(
        *this,
        "SELECT initiator, iif(target = '*', '', target) AS port, descriptor, event, sum(times) FROM fpin_totals "
        "GROUP BY 1, 2, 3, 4",
        [](SQLite::Statement& arRow) {
            return ZTSFpinTotal{wwnAt(arRow, 0), ZTSWwn::fromText(textAt(arRow, 1)), textAt(arRow, 2),
                                textAt(arRow, 3), numberAt(arRow, 4)};
        });
}

std::vector<ZTSIncidentTotal> ZTCStoreReader::readIncidentTotals() {
    return readAll<ZTSIncidentTotal>(*this, "SELECT class, incidents FROM incident_totals",
                                     [](SQLite::Statement& arRow) {
                                         return ZTSIncidentTotal{textAt(arRow, 0), numberAt(arRow, 1)};
                                     });
}
