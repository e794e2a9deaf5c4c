#include "HostSchema.h"

// A member's or a measured's last sum is that of this hour, or an earlier one: so it is known when no sum
// refers to it any more.
const char ZTStoreStepToHost[] = R"sql(
ALTER TABLE ports ADD COLUMN symbolic_name TEXT NOT NULL DEFAULT '';
ALTER TABLE ports ADD COLUMN model TEXT NOT NULL DEFAULT '';
ALTER TABLE ports ADD COLUMN firmware TEXT NOT NULL DEFAULT '';
ALTER TABLE ports ADD COLUMN driver TEXT NOT NULL DEFAULT '';
ALTER TABLE remote_ports ADD COLUMN dev_loss_tmo INTEGER;
ALTER TABLE member ADD COLUMN last INTEGER NOT NULL DEFAULT 0;
UPDATE member SET last = coalesce((SELECT max(time) FROM hours WHERE hours.axis = member.axis), 0);

CREATE TABLE fpins (         -- descriptors of FPINs that said the same within ten seconds
  id INTEGER PRIMARY KEY,
  first INTEGER NOT NULL,
  last INTEGER NOT NULL,
  times INTEGER NOT NULL,
  initiator TEXT NOT NULL,   -- the host's port that was told
  fabric TEXT NOT NULL,
  descriptor TEXT NOT NULL,
  event TEXT NOT NULL,
  severity TEXT NOT NULL,
  detecting TEXT NOT NULL,   -- the port that found it, and the one that is attached to it
  attached TEXT NOT NULL,
  modifier INTEGER NOT NULL,
  threshold INTEGER NOT NULL,
  period INTEGER NOT NULL,
  count INTEGER NOT NULL,
  ports TEXT NOT NULL        -- those that are affected, with blanks between
);
CREATE INDEX fpins_by_time ON fpins (first);

CREATE TABLE stalls (        -- disks that had commands and completed none
  id INTEGER PRIMARY KEY,
  first INTEGER NOT NULL,
  last INTEGER NOT NULL,
  over INTEGER NOT NULL,     -- 1: it is, at last
  disk TEXT NOT NULL,
  name TEXT NOT NULL,
  hits TEXT NOT NULL,        -- what stood above it then
  in_flight INTEGER NOT NULL,
  kind TEXT NOT NULL,
  UNIQUE (disk, first)
);
CREATE INDEX stalls_by_time ON stalls (first);
CREATE INDEX stalls_open ON stalls (over) WHERE over = 0;

CREATE TABLE luns (          -- as each path shows them, when they were last seen
  name TEXT PRIMARY KEY,
  address TEXT NOT NULL,     -- host, channel, target and LUN
  disk TEXT NOT NULL,
  wwid TEXT NOT NULL,
  serial TEXT NOT NULL,
  vendor TEXT NOT NULL,
  model TEXT NOT NULL,
  initiator TEXT NOT NULL,
  target TEXT NOT NULL,
  fabric TEXT NOT NULL,
  lun INTEGER NOT NULL,
  state TEXT NOT NULL,
  access TEXT NOT NULL,
  queue_depth INTEGER,
  seen INTEGER NOT NULL,     -- when it was last there; while it is: when it came or last changed
  here INTEGER NOT NULL      -- 1: it is there now
) WITHOUT ROWID;
CREATE INDEX luns_gone ON luns (seen) WHERE here = 0;
CREATE TABLE maps (          -- the paths to a LUN under one name
  map TEXT PRIMARY KEY,      -- the WWID, else the name
  wwid TEXT NOT NULL,
  name TEXT NOT NULL,
  disk TEXT NOT NULL,
  usable INTEGER NOT NULL,
  paths INTEGER NOT NULL,
  total INTEGER NOT NULL,    -- the most that it has had
  seen INTEGER NOT NULL,
  here INTEGER NOT NULL,
  since INTEGER NOT NULL     -- so many are usable; 0: not known
) WITHOUT ROWID;
CREATE INDEX maps_gone ON maps (seen) WHERE here = 0;
CREATE TABLE map_paths (
  map TEXT NOT NULL REFERENCES maps,
  disk TEXT NOT NULL,
  usable INTEGER NOT NULL,
  source TEXT NOT NULL       -- how that is known: 'kernel', 'multipathd', 'ports'
);
CREATE INDEX map_paths_by_map ON map_paths (map);
CREATE TABLE volumes (       -- block devices over others
  disk TEXT PRIMARY KEY,
  name TEXT NOT NULL
) WITHOUT ROWID;
CREATE TABLE volume_over (
  disk TEXT NOT NULL REFERENCES volumes,
  over TEXT NOT NULL,        -- a disk right beneath
  PRIMARY KEY (disk, over)
) WITHOUT ROWID;
CREATE TABLE mounts (
  point TEXT NOT NULL,
  disk TEXT NOT NULL,
  type TEXT NOT NULL,
  PRIMARY KEY (point, disk)
) WITHOUT ROWID;

CREATE TABLE measured (      -- whose a measure is
  id INTEGER PRIMARY KEY,
  initiator TEXT NOT NULL,
  remote TEXT NOT NULL,
  lun TEXT NOT NULL,
  last INTEGER NOT NULL,
  UNIQUE (initiator, remote, lun)
);
CREATE TABLE measure (id INTEGER PRIMARY KEY, name TEXT NOT NULL UNIQUE);
CREATE TABLE measure_minutes (
  time INTEGER NOT NULL,     -- its begin, in seconds since 1970
  measured INTEGER NOT NULL REFERENCES measured,
  measure INTEGER NOT NULL REFERENCES measure,
  value INTEGER NOT NULL,
  PRIMARY KEY (time, measured, measure)
) WITHOUT ROWID;
CREATE TABLE measure_hours (
  time INTEGER NOT NULL,
  measured INTEGER NOT NULL REFERENCES measured,
  measure INTEGER NOT NULL REFERENCES measure,
  value INTEGER NOT NULL,
  PRIMARY KEY (time, measured, measure)
) WITHOUT ROWID;

CREATE TABLE blind_spots (   -- what this host cannot tell of
  what TEXT NOT NULL,
  place TEXT NOT NULL,       -- empty: all of the host
  why TEXT NOT NULL,
  sure INTEGER NOT NULL
);
CREATE TABLE windows (       -- maintenance
  what TEXT NOT NULL,
  first INTEGER NOT NULL,
  last INTEGER NOT NULL,
  text TEXT NOT NULL
);
CREATE TABLE facts (name TEXT PRIMARY KEY, value) WITHOUT ROWID;
CREATE TABLE requests (      -- what somebody has asked vrx-sn for
  id INTEGER PRIMARY KEY,
  time INTEGER NOT NULL,
  who TEXT NOT NULL,
  what TEXT NOT NULL,
  subject TEXT NOT NULL,
  text TEXT NOT NULL,
  done INTEGER NOT NULL      -- when; 0: not yet
);
CREATE INDEX requests_by_time ON requests (time);
CREATE INDEX requests_open ON requests (id) WHERE done = 0;
)sql";
