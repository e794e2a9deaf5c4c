// Targets as people write them: node name, port name, Fibre Channel address.
#pragma once

#include <string>
#include <vector>

#include "SensorMessages.h"

/// Reads triples of words. Throws ZTCScopeUsage.
std::vector<ZTSSensorTarget> readTargets(const std::vector<std::string>& acrWords);
/// Reads a file, a target a line; # begins a comment, "-" is standard input. Throws ZTCScopeFailure.
std::vector<ZTSSensorTarget> loadTargets(const std::string& acrFile);
