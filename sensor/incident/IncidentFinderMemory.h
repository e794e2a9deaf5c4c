// What the finder has to know of a case to go on behind a new start, as a text that the history keeps.
#pragma once

#include "IncidentFinderCase.h"

std::string toMemory(const ZTSOpenCase& acrCase);
/// The case of an incident, without what is beside its clusters. A text that says nothing leaves a case that
/// has no state.
std::unique_ptr<ZTSOpenCase> fromMemory(const ZTSIncident& acrIncident);
