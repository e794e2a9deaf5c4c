// What the agent counts of its events (Statistics.h), and the names of all rows.
#pragma once

#include "ScopeAgentEventKinds.h"
#include "ScopeAgentLosses.h"

static_assert(ZTRowOf(ZTS_Events, ZTSEK_Count) == ZTS_RecordedEvents, "a row a kind");

/// Names the rows. At the start, before anything is shown.
void ZTNameStatistics();

/// An event, which a record has. Under the scope-data lock.
inline void ZTCountRecorded(ZTEScopeEventKind aKind, bool aIsFolded) {
    ZTAddToStatistic(ZTRowOf(ZTS_Events, aKind));
    ZTAddToStatistic(ZTS_RecordedEvents);
    ZTAddToStatistic(ZTS_HeldEvents);
    if (aIsFolded) {
        ZTAddToStatistic(ZTS_Folded);
        return;
    }
    ZTAddToStatistic(ZTS_Records);
    ZTAddToStatistic(ZTS_HeldRecords);
}
