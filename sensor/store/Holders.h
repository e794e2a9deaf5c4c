// Who holds a lock on a store: as the kernel tells of the locks of files.
#pragma once

#include <string>

/// "process 1234 (sqlite3)", those that keep others from writing first, three at most. Never this process.
/// Empty: nobody is seen. aProc: /proc.
std::string describeHolders(const std::string& acrPath, const std::string& acrProc = "/proc");
