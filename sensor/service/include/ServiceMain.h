// What main does in every program that runs for long.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "ServiceLog.h"

/// What stands behind the program's name, and where it says what it has to say. Returns the status.
using ZTServiceRun = std::function<int(const std::vector<std::string>& acrWords, ZTCServiceLog& arLog)>;

/// Runs it, and makes a line and a status of what it throws: 2 of ZTCServiceUsage, 1 of all else;
/// ZTCServiceShown is shown. apName: the program's, and as long as it lives.
int runService(const char* apName, int argc, char** argv, const ZTServiceRun& acrRun);
