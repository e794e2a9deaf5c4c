// The program's JSON: schema 1, as docs/json.md has it. Lists are always lists, what is not known is null.
#pragma once

#include <nlohmann/json.hpp>

#include "AgentStatus.h"
#include "Fetched.h"

using ZTJson = nlohmann::ordered_json;

/// As text, whatever bytes it holds; aIndent below 0: on one line.
std::string dump(const ZTJson& acrJson, int aIndent = -1);

/// A document of the program, with its schema and the command that it answers.
ZTJson makeDocument(const std::string& acrCommand);
/// One record, with its adapter port.
ZTJson toJson(const ZTSPortNames& acrInitiator, const ZTSSensorRecord& acrRecord);
/// All of a fetch.
ZTJson toJson(const std::string& acrCommand, const ZTSFetched& acrFetched);
ZTJson toJson(const std::string& acrDirectory, const ZTSAgentStatus& acrStatus);
