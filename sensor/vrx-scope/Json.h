// The program's JSON, as text: schema 1, as docs/json.md has it. Lists are always lists, what is not known is
// null, and whatever bytes a text holds, it is UTF-8 here. Every text is one line. Records: RecordPrinter.h.
#pragma once

#include "JsonWriter.h"
#include "StatisticsText.h"
#include "Status.h"
#include "Targets.h"

/// What every document says that it is written by.
inline constexpr int ZTScopeSchema = 1;

/// The first members of every document: the schema, and which command it answers.
inline void putHead(ZTCJsonWriter& arJson, std::string_view aCommand) {
    arJson.key("schema");
    arJson.number(ZTScopeSchema);
    arJson.key("command");
    arJson.text(aCommand);
}

/// That a command has been carried out.
std::string doneJson(const std::string& acrCommand);
/// That targets have been registered, and which of them the agent will not find.
std::string targetsJson(const ZTSHiddenTargets& acrHidden);
std::string statusJson(const ZTSScopeStatus& acrStatus);
std::string statisticsJson(const ZTSStatisticsTaken& acrTaken,
                           const std::optional<ZTSStatisticsTaken>& acrOfLibrary);
