#include "TotalsSchema.h"

// What is there already is counted, in the order of the file, and added row by row: to go by series would
// read all of a large file again for each, and to sort records would take memory for all.
const char ZTStoreStepToTotals[] = R"sql(
CREATE TABLE series_hours (  -- sums of the records whose first event was in that hour
  time INTEGER NOT NULL,     -- its begin, in seconds since 1970
  series INTEGER NOT NULL REFERENCES series,
  events INTEGER NOT NULL,
  PRIMARY KEY (time, series)
) WITHOUT ROWID;
INSERT INTO series_hours SELECT first / 3600000000000 * 3600, series, occurrences FROM records WHERE true
  ON CONFLICT DO UPDATE SET events = events + excluded.events;

CREATE TABLE sense_totals (  -- check conditions, ever
  initiator TEXT NOT NULL,
  sense_key INTEGER NOT NULL,  -- -1: there is none, or none that can be
  events INTEGER NOT NULL,
  PRIMARY KEY (initiator, sense_key)
) WITHOUT ROWID;
INSERT INTO sense_totals SELECT initiator, iif(
  hex(substr(data, 1, 4)) = '01000000' AND hex(substr(data, 13, 4)) LIKE '0_000000',
  instr('0123456789ABCDEF', substr(hex(substr(data, 13, 1)), 2)) - 1, -1), occurrences
  FROM records CROSS JOIN series ON series.id = series WHERE category = 4 AND subcategory = 4
  ON CONFLICT DO UPDATE SET events = events + excluded.events;

CREATE TABLE fpin_totals (   -- ever
  initiator TEXT NOT NULL,
  target TEXT NOT NULL,      -- the port that it is about; '*': of very many the rest
  descriptor TEXT NOT NULL,
  event TEXT NOT NULL,
  times INTEGER NOT NULL,
  PRIMARY KEY (initiator, target, descriptor, event)
) WITHOUT ROWID;
INSERT INTO fpin_totals SELECT initiator, iif(replace(replace(attached, '0', ''), ':', '') <> '', attached,
  iif(replace(replace(detecting, '0', ''), ':', '') <> '', detecting, '')), descriptor, event, times
  FROM fpins WHERE true ON CONFLICT DO UPDATE SET times = times + excluded.times;

CREATE TABLE incident_totals (  -- ever, in each class that they had
  class TEXT PRIMARY KEY,
  incidents INTEGER NOT NULL
) WITHOUT ROWID;
INSERT INTO incident_totals SELECT class, count(*) FROM incidents GROUP BY class;

CREATE INDEX changes_of_sensor ON changes (time) WHERE what = 'sensor' AND attribute = '';
)sql";
