// The collection in the agent that the sensor fetches from.
#pragma once

#include "LossBook.h"
#include "PortBook.h"
#include "SensorClient.h"

/// Whether the figures tell for sure that no collection runs.
bool isIdle(const ZTSBookFigures* apFigures);
/// One that may be under way is ended first: each event would be told twice.
void startCollection(ZTCSensorClient& arClient, const ZTSBookFigures* apFigures, std::uint32_t aCeiling);
