// The tables of the store (docs/store.md).
#pragma once

/// Makes all of them, at version ZTStoreVersion.
extern const char ZTStoreSchema[];
