// Whether what is left of the log beside the main file can be trusted.
#pragma once

#include <string>

/// False: the log has lost something that it must still have, for a part of it is in the main file already.
/// Only while nobody writes the store, and before anybody opens it.
bool isStoreLogWhole(const std::string& acrPath);
