// The program's JSON, as text: schema 1, as docs/json.md has it. Lists are always lists, what is not known is
// null, and whatever bytes a text holds, it is UTF-8 here. Every text is one line. Records: RecordPrinter.h.
#pragma once

#include "StatisticsText.h"
#include "Status.h"
#include "Targets.h"
#include "ViewJson.h"

/// That a command has been carried out.
std::string doneJson(const std::string& acrCommand);
/// That targets have been registered, and which of them the agent will not find.
std::string targetsJson(const ZTSHiddenTargets& acrHidden);
std::string statusJson(const ZTSScopeStatus& acrStatus);
std::string statisticsJson(const ZTSStatisticsTaken& acrTaken,
                           const std::optional<ZTSStatisticsTaken>& acrOfLibrary);
