#include <sqlite3.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "StoreFile.h"

namespace {

struct ZTSMeaning {
    int mCode;
    ZTEStoreFault mFault;
    const char* mpText;  // follows the path
};

// An extended code stands before its class.
const ZTSMeaning sOfSqlite[] = {
    {SQLITE_IOERR_NOMEM, ZTEStoreFault::Memory, ": no memory is left"},
    {SQLITE_IOERR_SHMSIZE, ZTEStoreFault::Full, " has no room: free some of its disk"},
    {SQLITE_READONLY_RECOVERY, ZTEStoreFault::Busy, " is just being opened by vrx-sn"},
    {SQLITE_READONLY_CANTINIT, ZTEStoreFault::Busy, " is just being opened by vrx-sn"},
    {SQLITE_CANTOPEN_ISDIR, ZTEStoreFault::Unusable, " is a folder, not a store"},
    {SQLITE_BUSY, ZTEStoreFault::Busy, " is locked by another process"},
    {SQLITE_LOCKED, ZTEStoreFault::Busy, " is locked by another process"},
    {SQLITE_PROTOCOL, ZTEStoreFault::Busy, " is locked by another process"},
    {SQLITE_INTERRUPT, ZTEStoreFault::Busy, ": what was asked for takes too long: ask for less"},
    {SQLITE_FULL, ZTEStoreFault::Full, " has no room: free some of its disk"},
    {SQLITE_READONLY, ZTEStoreFault::ReadOnly, " cannot be written: the file or its disk is read-only"},
    {SQLITE_NOMEM, ZTEStoreFault::Memory, ": no memory is left"},
    {SQLITE_CORRUPT, ZTEStoreFault::Damaged, " is damaged"},
    {SQLITE_NOTADB, ZTEStoreFault::Damaged, " is damaged"},
    {SQLITE_CANTOPEN, ZTEStoreFault::Io, " or what stands beside it (-wal, -shm) cannot be opened"},
    {SQLITE_IOERR, ZTEStoreFault::Io, ": its disk fails"},
    {SQLITE_PERM, ZTEStoreFault::Unusable, ": no permission"},
    {SQLITE_AUTH, ZTEStoreFault::Unusable, ": no permission"},
};

const ZTSMeaning sOfSystem[] = {
    {ENOENT, ZTEStoreFault::Unusable, " cannot be there: its folder does not exist"},
    {ENOTDIR, ZTEStoreFault::Unusable, " cannot be there: its folder is none"},
    {EISDIR, ZTEStoreFault::Unusable, " is a folder, not a store"},
    {EACCES, ZTEStoreFault::Unusable, ": no permission"},
    {EPERM, ZTEStoreFault::Unusable, ": no permission"},
    {ELOOP, ZTEStoreFault::Unusable, " is not used: a symbolic link is in its place"},
    {ENAMETOOLONG, ZTEStoreFault::Unusable, " is too long a name"},
    {EROFS, ZTEStoreFault::ReadOnly, " cannot be written: the file or its disk is read-only"},
    {ENOSPC, ZTEStoreFault::Full, " has no room: free some of its disk"},
    {EDQUOT, ZTEStoreFault::Full, " has no room: free some of its disk"},
    {EAGAIN, ZTEStoreFault::Memory, ": no memory is left"},
    {ENODEV, ZTEStoreFault::Unusable, " is no file"},
    {ENXIO, ZTEStoreFault::Unusable, " is no file"},
    {ENOMEM, ZTEStoreFault::Memory, ": no memory is left"},
};

template <std::size_t Size>
const ZTSMeaning* sFind(const ZTSMeaning (&acrTable)[Size], int aCode) {
    for (const ZTSMeaning& lrMeaning : acrTable) {
        if (lrMeaning.mCode == aCode) {
            return &lrMeaning;
        }
    }
    return nullptr;
}

}  // namespace

ZTCStoreError toStoreError(const SQLite::Exception& acrError, const std::string& acrPath) {
    const ZTSMeaning* lpMeaning = sFind(sOfSqlite, acrError.getExtendedErrorCode());
    if (lpMeaning == nullptr) {
        lpMeaning = sFind(sOfSqlite, acrError.getErrorCode() & 0xff);
    }
    const std::string lWhy = std::string(" (") + acrError.what() + ")";
    return lpMeaning != nullptr ? ZTCStoreError(lpMeaning->mFault, acrPath + lpMeaning->mpText + lWhy)
                                : ZTCStoreError(ZTEStoreFault::Io, acrPath + " cannot be used" + lWhy);
}

ZTCStoreError toStoreError(int aErrno, const std::string& acrPath) {
    const ZTSMeaning* const lpMeaning = sFind(sOfSystem, aErrno);
    return lpMeaning != nullptr
               ? ZTCStoreError(lpMeaning->mFault, acrPath + lpMeaning->mpText)
               : ZTCStoreError(ZTEStoreFault::Io, acrPath + ": its disk fails (" + strerror(aErrno) + ")");
}
