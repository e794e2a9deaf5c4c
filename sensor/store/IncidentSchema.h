// The tables of incidents (docs/store.md).
#pragma once

/// The step from version 2 to 3.
extern const char ZTStoreStepToIncidents[];
