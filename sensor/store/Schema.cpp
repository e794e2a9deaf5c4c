#include "Schema.h"

#include <array>

#include "HostSchema.h"
#include "IncidentSchema.h"
#include "StoreFile.h"
#include "TotalsSchema.h"

// Times are nanoseconds since 1970. Names of ports are eight hex pairs with colons, or empty.
const char ZTStoreSchema[] = R"sql(
CREATE TABLE meta (          -- what there is one of (docs/store.md)
  name TEXT PRIMARY KEY,
  value
) WITHOUT ROWID;

CREATE TABLE series (        -- what many records have in common
  id INTEGER PRIMARY KEY,
  kind TEXT NOT NULL,        -- its name, or its two numbers
  category INTEGER NOT NULL,
  subcategory INTEGER NOT NULL,
  initiator TEXT NOT NULL,
  initiator_node TEXT NOT NULL,
  fabric TEXT NOT NULL,
  remote TEXT NOT NULL,      -- the port beyond the fabric
  target TEXT NOT NULL,      -- the registered target, as the agent named it
  target_node TEXT NOT NULL,
  events INTEGER NOT NULL,   -- ever: these do not go back when records go
  records INTEGER NOT NULL,
  first INTEGER NOT NULL,
  last INTEGER NOT NULL,
  UNIQUE (category, subcategory, initiator, initiator_node, fabric, remote, target, target_node)
);

CREATE TABLE records (
  id INTEGER PRIMARY KEY,
  series INTEGER NOT NULL REFERENCES series,
  first INTEGER NOT NULL,
  last INTEGER NOT NULL,
  occurrences INTEGER NOT NULL,
  data BLOB NOT NULL
);
CREATE INDEX records_by_time ON records (first);
CREATE INDEX records_by_series ON records (series, first);

CREATE TABLE axis (id INTEGER PRIMARY KEY, name TEXT NOT NULL);
INSERT INTO axis VALUES (1, 'kind'), (2, 'initiator'), (3, 'target'), (4, 'fabric');
CREATE TABLE member (        -- what stands on an axis
  id INTEGER PRIMARY KEY,
  axis INTEGER NOT NULL REFERENCES axis,
  name TEXT NOT NULL,
  UNIQUE (axis, name)
);
CREATE TABLE minutes (       -- sums of the records whose first event was in that minute
  axis INTEGER NOT NULL,
  time INTEGER NOT NULL,     -- its begin, in seconds since 1970
  member INTEGER NOT NULL REFERENCES member,
  events INTEGER NOT NULL,
  PRIMARY KEY (axis, time, member)
) WITHOUT ROWID;
CREATE TABLE hours (
  axis INTEGER NOT NULL,
  time INTEGER NOT NULL,
  member INTEGER NOT NULL REFERENCES member,
  events INTEGER NOT NULL,
  PRIMARY KEY (axis, time, member)
) WITHOUT ROWID;

CREATE TABLE losses (        -- events that no record has
  id INTEGER PRIMARY KEY,
  first INTEGER NOT NULL,
  last INTEGER NOT NULL,
  source TEXT NOT NULL,
  reason TEXT NOT NULL,
  events INTEGER,            -- NULL: nobody knows how many
  at_most INTEGER
);
CREATE INDEX losses_by_time ON losses (first);
CREATE TABLE loss_totals (   -- ever
  source TEXT NOT NULL,
  reason TEXT NOT NULL,
  events INTEGER NOT NULL,
  unknown INTEGER NOT NULL,  -- rows that say no number
  PRIMARY KEY (source, reason)
) WITHOUT ROWID;

CREATE TABLE changes (       -- what came, went, or became something else
  id INTEGER PRIMARY KEY,
  time INTEGER NOT NULL,
  what TEXT NOT NULL,
  name TEXT NOT NULL,
  event TEXT NOT NULL,
  attribute TEXT NOT NULL,
  before TEXT NOT NULL,
  after TEXT NOT NULL
);
CREATE INDEX changes_by_time ON changes (time);

CREATE TABLE agents (        -- runs of the agent
  id INTEGER PRIMARY KEY,
  start INTEGER NOT NULL,
  process INTEGER NOT NULL,
  came INTEGER NOT NULL,
  seen INTEGER NOT NULL,
  went INTEGER,
  end TEXT NOT NULL,         -- '', 'ended', 'killed', 'unknown'
  taken INTEGER NOT NULL,    -- events that were fetched and are accounted for
  UNIQUE (start, process)
);
CREATE TABLE figures (       -- what the last one counted, when it was last seen
  agent INTEGER NOT NULL REFERENCES agents,
  name TEXT NOT NULL,
  value INTEGER NOT NULL,
  told INTEGER,              -- what of a count of losses is in the table losses
  PRIMARY KEY (agent, name)
) WITHOUT ROWID;

CREATE TABLE ports (         -- the host's own, as they were last seen
  port TEXT PRIMARY KEY,
  node TEXT NOT NULL,
  host TEXT NOT NULL,
  state TEXT NOT NULL,
  speed TEXT NOT NULL,
  type TEXT NOT NULL,
  port_id INTEGER,
  fabric TEXT NOT NULL,
  seen INTEGER NOT NULL,
  here INTEGER NOT NULL,     -- 1: it is there now
  since INTEGER NOT NULL     -- it has its state; 0: not known
) WITHOUT ROWID;
CREATE TABLE remote_ports (
  initiator TEXT NOT NULL,
  port TEXT NOT NULL,
  node TEXT NOT NULL,
  state TEXT NOT NULL,
  roles TEXT NOT NULL,
  port_id INTEGER,
  fabric TEXT NOT NULL,
  seen INTEGER NOT NULL,
  here INTEGER NOT NULL,
  PRIMARY KEY (initiator, port)
) WITHOUT ROWID;
CREATE TABLE names (         -- the names file
  port TEXT PRIMARY KEY,
  name TEXT NOT NULL,
  array TEXT NOT NULL,
  controller TEXT NOT NULL,
  fabric TEXT NOT NULL,
  switch_port TEXT NOT NULL
) WITHOUT ROWID;
CREATE TABLE kept (          -- rows that retention leaves alone
  first_id INTEGER NOT NULL,
  last_id INTEGER NOT NULL
);

CREATE VIEW history AS       -- the records, readable
SELECT records.id, datetime(records.first / 1000000000, 'unixepoch') AS first_utc,
       datetime(records.last / 1000000000, 'unixepoch') AS last_utc, kind, occurrences, initiator, remote, fabric,
       records.first, records.last, hex(data) AS data
FROM records JOIN series ON series.id = series;
)sql";

namespace {

constexpr std::array sSteps{ZTStoreStepToHost, ZTStoreStepToIncidents, ZTStoreStepToTotals};
static_assert(ZTStoreVersion == 1 + sSteps.size());

}  // namespace

const ZTStoreStepList ZTStoreSteps(sSteps);

void makeStoreTables(SQLite::Database& arDatabase) {
    arDatabase.exec(ZTStoreSchema);
    for (const char* const lpStep : ZTStoreSteps) {
        arDatabase.exec(lpStep);
    }
}

void bringStoreUpToDate(SQLite::Database& arDatabase, ZTStoreStepList aSteps) {
    const auto lVersion = static_cast<std::size_t>(arDatabase.execAndGet("PRAGMA user_version").getInt());
    if (lVersion > aSteps.size()) {
        return;
    }
    SQLite::Transaction lTransaction(arDatabase);
    for (const char* const lpStep : aSteps.subspan(lVersion - 1)) {
        arDatabase.exec(lpStep);
    }
    arDatabase.exec("PRAGMA user_version = " + std::to_string(aSteps.size() + 1));
    lTransaction.commit();
}
