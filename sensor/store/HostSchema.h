// The tables of what the host tells (docs/store.md).
#pragma once

/// The step from version 1 to 2.
extern const char ZTStoreStepToHost[];
