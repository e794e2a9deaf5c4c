// What stands at a store's path, before SQLite is let near it.
#pragma once

#include <string>

#include "StoreLock.h"

enum class ZTEStoreLook : unsigned char {
    Nothing,  ///< none is there, or an empty file: one can be made
    Store,
    Damaged,  ///< it was ours
    Newer,    ///< ours, of a version that is not known here
    Foreign,  ///< it was never ours
};

/// Throws ZTCStoreError for what can never be one: a folder, no permission. While a process writes it, only
/// its header is looked at.
ZTEStoreLook lookAtStore(const std::string& acrPath, const ZTSStoreHolder& acrHolder);
