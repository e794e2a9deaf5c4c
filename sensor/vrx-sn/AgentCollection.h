// The collection in the agent that the sensor fetches from.
#pragma once

#include "LossBook.h"
#include "PortBook.h"
#include "SensorClient.h"

/// Whether the figures tell for sure that no collection runs.
bool isIdle(const ZTSBookFigures* apFigures);
/// Of the library in the agent, by name; nothing: it shows none.
std::optional<std::map<std::string, std::uint64_t>> libraryOf(const ZTSBookFigures* apFigures);
/// One that may be under way is ended first: each event would be told twice.
void startCollection(ZTCSensorClient& arClient, const ZTSBookFigures* apFigures, std::uint32_t aCeiling);
