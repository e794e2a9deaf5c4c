#include "StoreFile.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/random.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>

#include "PageSums.h"
#include "Schema.h"
#include "SetAside.h"
#include "StoreLook.h"
#include "StoreMending.h"

namespace {

constexpr int sBusyMilliseconds = 250;
constexpr int sPatienceToAdd = 5000;

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

int sGetVersion(SQLite::Database& arDatabase) {
    return arDatabase.execAndGet("PRAGMA user_version").getInt();
}

SQLite::Database sConnect(const std::string& acrPath, int aFlags) {
    SQLite::Database lDatabase(acrPath, aFlags, sBusyMilliseconds, usePageSums());
    lDatabase.exec("PRAGMA mmap_size = 0; PRAGMA cache_size = -4096; PRAGMA temp_store = MEMORY");
    return lDatabase;
}

SQLite::Database sConnectToWrite(const std::string& acrPath) {
    SQLite::Database lDatabase = sConnect(acrPath, SQLite::OPEN_READWRITE);
    // The log and its index stay when the file is closed: who may only read could not make them.
    int lOn = 1;
    int lReserved = static_cast<int>(ZTPageSumSize);
    sqlite3_file_control(lDatabase.getHandle(), "main", SQLITE_FCNTL_PERSIST_WAL, &lOn);
    sqlite3_file_control(lDatabase.getHandle(), "main", SQLITE_FCNTL_RESERVE_BYTES, &lReserved);
    // Who writes brings the log into the file when it suits him.
    lDatabase.exec(
        "PRAGMA synchronous = NORMAL; PRAGMA wal_autocheckpoint = 0; PRAGMA journal_size_limit = 1048576;"
        "PRAGMA secure_delete = OFF; PRAGMA foreign_keys = OFF");
    return lDatabase;
}

// The tables are in the main file before there is a log: so its header is ours from the first byte on.
void sMake(SQLite::Database& arDatabase) {
    arDatabase.exec("PRAGMA page_size = 4096");
    SQLite::Transaction lTransaction(arDatabase);
    arDatabase.exec("PRAGMA auto_vacuum = INCREMENTAL");
    makeStoreTables(arDatabase);
    SQLite::Statement lInsert(arDatabase, "INSERT INTO meta VALUES ('store', ?), ('made', ?)");
    lInsert.bind(1, sMakeUuid());
    lInsert.bind(2, sNow());
    lInsert.exec();
    arDatabase.exec("PRAGMA application_id = " + std::to_string(ZTStoreApplication));
    arDatabase.exec("PRAGMA user_version = " + std::to_string(ZTStoreVersion));
    lTransaction.commit();
}

[[noreturn]] void sRefuse(ZTEStoreFault aFault, const std::string& acrPath, const std::string& acrWhy) {
    throw ZTCStoreError(aFault, acrPath + acrWhy);
}

[[noreturn]] void sRefuseNewer(const std::string& acrPath) {
    sRefuse(ZTEStoreFault::Newer, acrPath,
            " is of a newer version than " + std::to_string(ZTStoreVersion) + ": install a newer program");
}

void sRefuseOthers(ZTEStoreLook aLook, const std::string& acrPath) {
    if (aLook == ZTEStoreLook::Newer) {
        sRefuseNewer(acrPath);
    }
    if (aLook == ZTEStoreLook::Foreign) {
        sRefuse(ZTEStoreFault::Unusable, acrPath, " is no store: name another file, or move this one away");
    }
}

SQLite::Database sOpenOrMake(const std::string& acrPath) {
    SQLite::Database lDatabase = sConnectToWrite(acrPath);
    if (sqlite3_db_readonly(lDatabase.getHandle(), "main") != 0) {
        throw toStoreError(EROFS, acrPath);  // SQLite is content with less than it was asked for
    }
    const int lVersion = sGetVersion(lDatabase);
    if (lVersion > ZTStoreVersion) {
        sRefuseNewer(acrPath);
    }
    if (lVersion == 0) {
        sMake(lDatabase);
    } else {
        bringStoreUpToDate(lDatabase, ZTStoreSteps);
    }
    if (lDatabase.execAndGet("PRAGMA journal_mode = WAL").getString() != "wal") {
        sRefuse(ZTEStoreFault::Unusable, acrPath,
                " cannot be shared on its file system: put it on another one");
    }
    sGetVersion(lDatabase);  // makes the log's index: who may only read it could not
    return lDatabase;
}

// Who may read it is told by its group; SQLite gives what it puts beside it the same mode.
SQLite::Database sMakeNew(const std::string& acrPath) {
    if (ZTCStoreDescriptor(open(acrPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0640)).get() < 0) {
        throw toStoreError(errno, acrPath);
    }
    return sOpenOrMake(acrPath);
}

ZTSOpenedStore sMakeAnew(ZTCStoreLock aLock, const std::string& acrPath) {
    std::string lAside = aLock.getBefore().mSetAside;
    if (lAside.empty() || access(acrPath.c_str(), F_OK) == 0) {
        lAside = nameStoreAside(acrPath);  // else it was cut short, between the file and its log
    }
    aLock.noteSetAside(lAside);
    setStoreAside(acrPath, lAside);
    SQLite::Database lDatabase = sMakeNew(acrPath);
    aLock.noteSetAside({});
    return {std::move(aLock), std::move(lDatabase), std::move(lAside)};
}

ZTSOpenedStore sOpen(const std::string& acrPath) {
    ZTCStoreLock lLock(acrPath);
    // It was set aside, and then no other could be made.
    std::string lAside = lLock.getBefore().mSetAside;
    ZTEStoreLook lLook = lookAtStore(acrPath, lLock.getBefore());
    sRefuseOthers(lLook, acrPath);
    const ZTEStoreMending lMending =
        lLook == ZTEStoreLook::Nothing ? ZTEStoreMending::NotNeeded : mendPageSums(acrPath);
    if (lMending == ZTEStoreMending::Mended) {
        lLook = lookAtStore(acrPath, lLock.getBefore());
        sRefuseOthers(lLook, acrPath);
    }
    if (lLook == ZTEStoreLook::Damaged || lMending == ZTEStoreMending::Damaged) {
        return sMakeAnew(std::move(lLock), acrPath);
    }
    try {
        SQLite::Database lDatabase =
            lLook == ZTEStoreLook::Nothing ? sMakeNew(acrPath) : sOpenOrMake(acrPath);
        if (!lAside.empty()) {
            lLock.noteSetAside({});
        }
        return {std::move(lLock), std::move(lDatabase), std::move(lAside),
                lMending == ZTEStoreMending::Mended};
    } catch (const SQLite::Exception& lrError) {
        if (toStoreError(lrError, acrPath).getFault() != ZTEStoreFault::Damaged) {
            throw;
        }
    }
    return sMakeAnew(std::move(lLock), acrPath);
}

// One that stands there, and is whole as far as that can be seen.
void sRefuseAllButStores(const std::string& acrPath, const ZTSStoreHolder& acrHolder) {
    const ZTEStoreLook lLook = lookAtStore(acrPath, acrHolder);
    sRefuseOthers(lLook, acrPath);
    if (lLook == ZTEStoreLook::Damaged) {
        sRefuse(ZTEStoreFault::Damaged, acrPath,
                " is damaged, or another program wrote it: vrx-sn sees to it when it starts");
    }
    if (lLook == ZTEStoreLook::Nothing) {
        acrHolder.mIsHere
            ? sRefuse(ZTEStoreFault::Busy, acrPath, " is just being made: try again")
            : sRefuse(ZTEStoreFault::Unusable, acrPath, " is not there: start vrx-sn, or name another store");
    }
}

SQLite::Database sOfThisVersion(SQLite::Database aDatabase, const std::string& acrPath) {
    const int lVersion = sGetVersion(aDatabase);
    if (lVersion > ZTStoreVersion) {
        sRefuseNewer(acrPath);
    }
    if (lVersion < ZTStoreVersion) {
        sRefuse(ZTEStoreFault::Busy, acrPath,
                " is of an older version: vrx-sn brings it up to date when it starts");
    }
    return aDatabase;
}

template <class Work>
auto sTelling(const std::string& acrPath, const Work& acrWork) {
    try {
        return acrWork();
    } catch (const SQLite::Exception& lrError) {
        throw toStoreError(lrError, acrPath);
    }
}

}  // namespace

ZTSOpenedStore openStoreToWrite(const std::string& acrPath) {
    // Nothing is put beside a file that is none of ours.
    const ZTSStoreHolder lHolder = findStoreHolder(acrPath);
    if (!lHolder.mIsKnown) {
        sRefuseOthers(lookAtStore(acrPath, lHolder), acrPath);
    }
    return sTelling(acrPath, [&] { return sOpen(acrPath); });
}

ZTSOpenedStore beginStoreAnew(ZTSOpenedStore aDamaged) {
    const std::string lPath = aDamaged.mDatabase.getFilename();
    ZTCStoreLock lLock = std::move(aDamaged.mLock);
    { const SQLite::Database lClosed = std::move(aDamaged.mDatabase); }
    return sTelling(lPath, [&] { return sMakeAnew(std::move(lLock), lPath); });
}

SQLite::Database openStoreAgain(const std::string& acrPath) {
    return sTelling(acrPath, [&] { return sConnectToWrite(acrPath); });
}

ZTSStoreAddition openStoreToAdd(const std::string& acrPath) {
    if (access(acrPath.c_str(), W_OK) != 0 && errno != ENOENT) {
        throw toStoreError(errno, acrPath);
    }
    ZTSStoreHolder lHolder;
    ZTCStoreDescriptor lLock = lockStoreToAdd(acrPath, lHolder);
    sRefuseAllButStores(acrPath, lHolder);
    if (lLock.get() < 0 && lHolder.mIsKnown && !lHolder.mIsHere) {
        sRefuse(ZTEStoreFault::Unusable, acrPath,
                "-lock cannot be written: no permission to add something while vrx-sn does not run");
    }
    return sTelling(acrPath, [&] {
        SQLite::Database lDatabase = sConnectToWrite(acrPath);
        sqlite3_db_config(lDatabase.getHandle(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
        lDatabase.setBusyTimeout(sPatienceToAdd);
        // Nobody else sees to it that the disk has it.
        lDatabase.exec(lLock.get() >= 0 ? "PRAGMA synchronous = FULL" : "");
        return ZTSStoreAddition{std::move(lLock), sOfThisVersion(std::move(lDatabase), acrPath)};
    });
}

SQLite::Database openStoreToRead(const std::string& acrPath) {
    sRefuseAllButStores(acrPath, findStoreHolder(acrPath));
    return sTelling(acrPath, [&] {
        return sOfThisVersion(sConnect(acrPath, SQLite::OPEN_READONLY | SQLite::OPEN_NOMUTEX), acrPath);
    });
}
