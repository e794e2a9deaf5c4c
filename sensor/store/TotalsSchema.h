// The tables of what is counted for good, and of the sums by series (docs/store.md).
#pragma once

/// The step from version 3 to 4.
extern const char ZTStoreStepToTotals[];
