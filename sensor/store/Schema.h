// The tables of the store (docs/store.md).
#pragma once

#include <SQLiteCpp/SQLiteCpp.h>

#include <span>

/// Makes all of them, at version ZTStoreVersion.
extern const char ZTStoreSchema[];

/// What leads from a version to the next one, from version 1 on.
using ZTStoreStepList = std::span<const char* const>;
extern const ZTStoreStepList ZTStoreSteps;

/// All steps that it has not gone yet, or none. Throws SQLite::Exception.
void bringStoreUpToDate(SQLite::Database& arDatabase, ZTStoreStepList aSteps);
