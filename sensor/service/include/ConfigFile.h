// The configuration's file, as text.
#pragma once

#include <string>

/// What lies there, be it what it may, without waiting for it: a regular file of a size that a configuration
/// has. Throws ZTCServiceUsage.
std::string readConfigFile(const std::string& acrPath);
