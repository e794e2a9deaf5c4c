// The program's JSON, as text: schema 1, as docs/json.md has it. Lists are always lists, what is not known is
// null, and whatever bytes a text holds, it is UTF-8 here. Every text ends its line.
#pragma once

#include "AgentStatus.h"
#include "Fetched.h"
#include "StatisticsText.h"

/// That a command has been carried out.
std::string doneJson(const std::string& acrCommand);
/// All of a fetch, over several lines.
std::string fetchedJson(const std::string& acrCommand, const ZTSFetched& acrFetched);
/// A line a record.
std::string recordLines(const std::string& acrCommand, const ZTSFetched& acrFetched);
/// With the agent's figures, if they can be read.
std::string statusJson(const std::string& acrDirectory, const ZTSAgentStatus& acrStatus,
                       const std::optional<ZTSStatistics>& acrStatistics);
/// On one line.
std::string statisticsJson(const ZTCAgentStatistics& acrAgent, const ZTSStatisticsTaken& acrTaken);
