#include "StoreFile.h"

#include <sqlite3.h>
#include <sys/random.h>

#include <array>
#include <chrono>
#include <cstdio>

#include "Schema.h"

namespace {

constexpr int sBusyMilliseconds = 250;

std::string sMakeUuid() {
    std::array<unsigned char, 16> lBytes{};
    static_cast<void>(getrandom(lBytes.data(), lBytes.size(), 0));  // so few are never cut short
    lBytes[6] = static_cast<unsigned char>((lBytes[6] & 0x0f) | 0x40);
    lBytes[8] = static_cast<unsigned char>((lBytes[8] & 0x3f) | 0x80);
    std::string lText;
    for (std::size_t lAt = 0; lAt < lBytes.size(); ++lAt) {
        char lHex[4];
        snprintf(lHex, sizeof lHex, lAt == 4 || lAt == 6 || lAt == 8 || lAt == 10 ? "-%02x" : "%02x",
                 lBytes[lAt]);
        lText += lHex;
    }
    return lText;
}

std::int64_t sNow() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

void sMake(SQLite::Database& arDatabase) {
    SQLite::Transaction lTransaction(arDatabase);
    arDatabase.exec(ZTStoreSchema);
    SQLite::Statement lInsert(arDatabase, "INSERT INTO meta VALUES ('store', ?), ('made', ?)");
    lInsert.bind(1, sMakeUuid());
    lInsert.bind(2, sNow());
    lInsert.exec();
    arDatabase.exec("PRAGMA application_id = " + std::to_string(ZTStoreApplication));
    arDatabase.exec("PRAGMA user_version = " + std::to_string(ZTStoreVersion));
    lTransaction.commit();
}

int sGetVersion(SQLite::Database& arDatabase) {
    return arDatabase.execAndGet("PRAGMA user_version").getInt();
}

void sSetUp(SQLite::Database& arDatabase) {
    // The log stays when the file is closed: who may only read it could not make one.
    int lOn = 1;
    sqlite3_file_control(arDatabase.getHandle(), "main", SQLITE_FCNTL_PERSIST_WAL, &lOn);
    // The first two count for a new file only.
    arDatabase.exec(
        "PRAGMA page_size = 4096; PRAGMA auto_vacuum = INCREMENTAL; PRAGMA journal_mode = WAL;"
        "PRAGMA synchronous = NORMAL; PRAGMA wal_autocheckpoint = 0;"
        "PRAGMA journal_size_limit = 1048576; PRAGMA mmap_size = 0; PRAGMA secure_delete = OFF;"
        "PRAGMA foreign_keys = OFF; PRAGMA cache_size = -4096; PRAGMA temp_store = MEMORY");
}

[[noreturn]] void sRefuseNewer(const std::string& acrPath, int aVersion) {
    throw ZTCStoreError(ZTEStoreFault::Newer, acrPath + " is of version " + std::to_string(aVersion) +
                                                  ", this program knows up to " +
                                                  std::to_string(ZTStoreVersion) + ": install a newer one");
}

}  // namespace

ZTSOpenedStore openStoreToWrite(const std::string& acrPath) {
    ZTCStoreLock lLock(acrPath);
    try {
        SQLite::Database lDatabase(acrPath, SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE, sBusyMilliseconds);
        sSetUp(lDatabase);
        const int lVersion = sGetVersion(lDatabase);
        if (lVersion > ZTStoreVersion) {
            sRefuseNewer(acrPath, lVersion);
        }
        if (lVersion == 0) {
            sMake(lDatabase);
        }
        return {std::move(lLock), std::move(lDatabase), {}};
    } catch (const SQLite::Exception& lrError) {
        throw toStoreError(lrError, acrPath);
    }
}

SQLite::Database openStoreToRead(const std::string& acrPath) {
    try {
        SQLite::Database lDatabase(acrPath, SQLite::OPEN_READONLY, sBusyMilliseconds);
        const int lVersion = sGetVersion(lDatabase);
        if (lVersion > ZTStoreVersion) {
            sRefuseNewer(acrPath, lVersion);
        }
        lDatabase.exec("PRAGMA mmap_size = 0; PRAGMA cache_size = -4096; PRAGMA temp_store = MEMORY");
        return lDatabase;
    } catch (const SQLite::Exception& lrError) {
        throw toStoreError(lrError, acrPath);
    }
}
