// What several commands of vrx-scope do alike.
#pragma once

#include "Commands.h"
#include "SensorClient.h"

/// Throws ZTCScopeUsage for what is no number.
std::chrono::milliseconds toDuration(double aSeconds);
/// The agent's runtime directory. Throws ZTCScopeUsage when nobody has named one.
const std::string& directoryOf(const ZTSScopeOptions& acrOptions);
ZTSSensorOptions clientOptionsOf(const ZTSScopeOptions& acrOptions);

/// Says that a command has been carried out.
void putDone(const ZTSScopeOptions& acrOptions, const std::string& acrCommand, const std::string& acrText);

/// Throws ZTCScopeUsage where options of a list stand with one incident.
void checkNothingOfList(const ZTSHistoryOptions& acrHistory, const ZTSIncidentOptions& acrOptions);
