#include "IncidentSchema.h"

// Evidence says which records are meant, and not each of them: an incident that grows with every second
// writes some rows, however many records it has.
const char ZTStoreStepToIncidents[] = R"sql(
CREATE TABLE incidents (     -- what one person would call one problem
  id INTEGER PRIMARY KEY,
  class TEXT NOT NULL,
  state TEXT NOT NULL,       -- 'open', 'quiet', 'closed'
  title TEXT NOT NULL,
  opened INTEGER NOT NULL,   -- its first sign
  last INTEGER NOT NULL,     -- its last one
  closed INTEGER,            -- NULL: it is not
  merged INTEGER,            -- into which; NULL: into none
  series INTEGER,            -- the first one of a kind that comes back; NULL: it has not
  events INTEGER NOT NULL,
  paths_left INTEGER,        -- of the map that has the fewest; NULL: no map is concerned
  paths_total INTEGER,
  kept INTEGER NOT NULL,     -- 1: retention leaves it and its records alone
  acknowledged_by TEXT NOT NULL,
  acknowledged_at INTEGER,   -- NULL: nobody has
  acknowledged_note TEXT NOT NULL,
  body TEXT NOT NULL,        -- the rest, as JSON
  memory TEXT NOT NULL       -- what vrx-sn needs to go on behind a new start
);
CREATE INDEX incidents_by_time ON incidents (opened, closed, merged);
CREATE INDEX incidents_closed ON incidents (closed) WHERE closed IS NOT NULL AND kept = 0;

CREATE TABLE incident_evidence (  -- its records: those of a kind and of ports that began from first to last
  incident INTEGER NOT NULL REFERENCES incidents,
  category INTEGER NOT NULL,
  subcategory INTEGER NOT NULL,
  initiator TEXT NOT NULL,
  remote TEXT NOT NULL,
  fabric TEXT NOT NULL,
  first INTEGER NOT NULL,
  last INTEGER NOT NULL,
  kept INTEGER NOT NULL,     -- its incident's
  PRIMARY KEY (incident, category, subcategory, initiator, remote, fabric, first)
) WITHOUT ROWID;
CREATE INDEX incident_evidence_by_time ON incident_evidence (last);
CREATE INDEX incident_evidence_kept ON incident_evidence (initiator, remote, category, subcategory, fabric, last)
  WHERE kept = 1;
CREATE INDEX kept_by_id ON kept (first_id, last_id);
CREATE INDEX series_by_ports ON series (remote, initiator, category, subcategory, fabric);
CREATE TRIGGER incidents_gone AFTER DELETE ON incidents BEGIN
  DELETE FROM incident_evidence WHERE incident = old.id;
END;
CREATE VIEW incident_records AS   -- the records of incidents by their ids
SELECT evidence.incident, records.id AS record
FROM incident_evidence AS evidence JOIN series USING (category, subcategory, initiator, remote, fabric)
JOIN records ON records.series = series.id AND records.first BETWEEN evidence.first AND evidence.last;

CREATE TABLE baselines (     -- how much of a kind of sign there was on a day, at a port
  day INTEGER NOT NULL,      -- since 1970, in UTC
  kind TEXT NOT NULL,
  port TEXT NOT NULL,        -- empty: the host
  events INTEGER NOT NULL,
  PRIMARY KEY (day, kind, port)
) WITHOUT ROWID;
)sql";
