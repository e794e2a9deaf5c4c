// Incidents as rows of the store and as values.
#pragma once

#include <tuple>

#include "HostRows.h"
#include "Incident.h"

/// What is in no column of its own, as JSON.
std::string incidentBody(const ZTSIncident& acrIncident);

/// What readStoredIncident() takes. What vrx-sn alone needs is not among it.
inline constexpr char ZTIncidentColumns[] =
    "SELECT id, class, state, title, opened, last, coalesce(closed, 0), coalesce(merged, 0), coalesce(series, 0),"
    " events, coalesce(paths_left, 0), coalesce(paths_total, 0), kept, acknowledged_by, acknowledged_at,"
    " acknowledged_note, body FROM incidents";
/// Without its evidence. Of a body that is not vrx-sn's there is what can be read.
ZTSIncident readStoredIncident(SQLite::Statement& arRow);

inline constexpr char ZTEvidenceColumns[] =
    "SELECT category, subcategory, initiator, remote, fabric, first, last FROM incident_evidence";
ZTSIncidentEvidence readStoredEvidence(SQLite::Statement& arRow);
