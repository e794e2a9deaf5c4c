// Opens the store's file the one right way, to write or to read.
#pragma once

#include <SQLiteCpp/SQLiteCpp.h>

#include <string>

#include "StoreError.h"
#include "StoreLock.h"

/// What the file is: the version of its tables, as user_version says it.
inline constexpr int ZTStoreVersion = 4;
/// Whose file it is, as application_id says it: "VRXS".
inline constexpr int ZTStoreApplication = 0x56525853;

/// Kept whole as long as the store is written: the lock goes last.
struct ZTSOpenedStore {
    ZTCStoreLock mLock;
    SQLite::Database mDatabase;
    std::string mSetAside;   ///< where a damaged file was put; empty: there was none
    bool mIsMended = false;  ///< another program had written it: the check sums are there again
};

/// Makes the file if there is none, with its tables, brings an older one up to date, and sets a damaged one
/// aside. Where another program wrote it while nobody had it, and it is whole, its check sums are put on
/// again. Every page carries a check sum, which is looked at whenever it is read. Throws ZTCStoreError.
ZTSOpenedStore openStoreToWrite(const std::string& acrPath);
/// One that turned out to be damaged is set aside, and a new one begun. Its statements are gone by then, and
/// connections by openStoreAgain() as well. Throws ZTCStoreError; openStoreToWrite() goes on from there.
ZTSOpenedStore beginStoreAnew(ZTSOpenedStore aDamaged);
/// One more connection of the process that has it open to write. Throws ZTCStoreError.
SQLite::Database openStoreAgain(const std::string& acrPath);
/// For who adds a row beside whoever writes the store, or when nobody does.
struct ZTSStoreAddition {
    ZTCStoreDescriptor mLock;
    SQLite::Database mDatabase;
};
/// Waits for whoever writes for some seconds, and brings nothing of the log into the file. Throws
/// ZTCStoreError.
ZTSStoreAddition openStoreToAdd(const std::string& acrPath);
/// mode=ro. Works while vrx-sn runs and when it does not, also for those who may only read the file and what
/// stands beside it: FILE-wal and FILE-shm, which stay there for them. For one thread at a time. Throws
/// ZTCStoreError.
SQLite::Database openStoreToRead(const std::string& acrPath);

/// What an error of SQLite's is, of which file.
ZTCStoreError toStoreError(const SQLite::Exception& acrError, const std::string& acrPath);
