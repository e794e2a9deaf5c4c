// The JSON of an incident (docs/json.md): one writer for all programs.
#pragma once

#include <span>

#include "Incident.h"
#include "JsonWriter.h"

/// Writes members into an object that has been begun. aEvidence: the ids of its records, where they are
/// known.
void putIncident(ZTCJsonWriter& arJson, const ZTSIncident& acrIncident, std::string_view aHost,
                 const ZTPortLabels& acrLabels, std::span<const std::uint64_t> aEvidence);
