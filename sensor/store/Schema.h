// The tables of the store (docs/store.md).
#pragma once

#include <SQLiteCpp/SQLiteCpp.h>

#include <span>

/// Those of version 1, as they were: what has changed since is a step.
extern const char ZTStoreSchema[];

/// What leads from a version to the next one, from version 1 on. A new store goes them as well, so that there
/// is one way to each version.
using ZTStoreStepList = std::span<const char* const>;
extern const ZTStoreStepList ZTStoreSteps;

/// All tables at version ZTStoreVersion, in the caller's transaction. Throws SQLite::Exception.
void makeStoreTables(SQLite::Database& arDatabase);
/// All steps that it has not gone yet, or none. Throws SQLite::Exception.
void bringStoreUpToDate(SQLite::Database& arDatabase, ZTStoreStepList aSteps);
