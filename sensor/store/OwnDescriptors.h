// Work on the store's files beside SQLite.
#pragma once

#include <functional>
#include <string>

/// A process that closes a file, loses the locks that it has on it through any other descriptor, so SQLite's
/// as well, of other threads. So this is done with a table of descriptors of its own. Throws what the work
/// throws; ZTCStoreError, which names the path, if it cannot be begun.
void withOwnDescriptors(const std::string& acrPath, const std::function<void()>& acrWork);
