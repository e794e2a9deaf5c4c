// Incidents in words.
#pragma once

#include <functional>

#include "Incidents.h"

/// How a moment is written.
using ZTTimeText = std::function<std::string(ZTNanoseconds)>;
/// For people, in UTC or the local zone.
ZTTimeText plainTimes(bool aInUtc);

/// A table of them.
std::string incidentsText(const std::vector<ZTSIncident>& acrIncidents, const ZTSIncidentFrame& acrFrame,
                          const ZTTimeText& acrTimes);
/// One of them, for whoever is woken by it.
std::string incidentText(const ZTSIncidentTold& acrTold, const ZTSIncidentFrame& acrFrame,
                         const ZTTimeText& acrTimes);
