// The configuration's file, as text.
#pragma once

#include <string>

/// What lies there, be it what it may, without waiting for it: a regular file of a size that a configuration
/// has. apWhat: as it is called when it cannot be read. Throws ZTCServiceUsage.
std::string readConfigFile(const std::string& acrPath, const char* apWhat = "configuration");
