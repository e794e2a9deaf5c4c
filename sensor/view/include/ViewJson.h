// How every document of JSON begins (docs/json.md).
#pragma once

#include "JsonWriter.h"

/// What every document says that it is written by.
inline constexpr int ZTScopeSchema = 1;

/// The first members of every document: the schema, and which command it answers.
inline void putHead(ZTCJsonWriter& arJson, std::string_view aCommand) {
    arJson.key("schema");
    arJson.number(ZTScopeSchema);
    arJson.key("command");
    arJson.text(aCommand);
}
