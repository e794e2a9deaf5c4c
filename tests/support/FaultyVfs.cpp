#include "FaultyVfs.h"

#include <cstring>
#include <thread>

namespace {

struct ZTSFaultyFile {
    sqlite3_file mFile;  // what the system's layer opened stands behind it
};

std::atomic<ZTCFaultyVfs*> spCurrent{nullptr};
sqlite3_vfs* spBelow = nullptr;

sqlite3_file* sBelow(sqlite3_file* apFile) {
    return reinterpret_cast<sqlite3_file*>(reinterpret_cast<ZTSFaultyFile*>(apFile) + 1);
}

unsigned int sBit(ZTEFileWork aWork) {
    return 1U << static_cast<unsigned int>(aWork);
}

template <ZTEFileWork Work, auto Method>
struct ZTSFaulty;
template <ZTEFileWork Work, class... Arguments,
          int (*sqlite3_io_methods::*Method)(sqlite3_file*, Arguments...)>
struct ZTSFaulty<Work, Method> {
    static int call(sqlite3_file* apFile, Arguments... aArguments) {
        const int lFault = ZTCFaultyVfs::getFault(Work);
        return lFault != 0 ? lFault : (sBelow(apFile)->pMethods->*Method)(sBelow(apFile), aArguments...);
    }
};
template <auto Method>
struct ZTSPassing;
template <class Result, class... Arguments,
          Result (*sqlite3_io_methods::*Method)(sqlite3_file*, Arguments...)>
struct ZTSPassing<Method> {
    static Result call(sqlite3_file* apFile, Arguments... aArguments) {
        return (sBelow(apFile)->pMethods->*Method)(sBelow(apFile), aArguments...);
    }
};

int sWrite(sqlite3_file* apFile, const void* apBytes, int aCount, sqlite3_int64 aOffset) {
    const int lFault = ZTCFaultyVfs::getFault(ZTEFileWork::Write);
    if (lFault == 0 || ZTCFaultyVfs::isFull()) {
        const int lWritten = lFault == 0 ? aCount : aCount / 2;
        const int lResult = sBelow(apFile)->pMethods->xWrite(sBelow(apFile), apBytes, lWritten, aOffset);
        return lFault == 0 ? lResult : SQLITE_FULL;
    }
    return lFault;
}

#define FAULTY(Method, Work) .Method = ZTSFaulty<ZTEFileWork::Work, &sqlite3_io_methods::Method>::call
#define PASSING(Method) .Method = ZTSPassing<&sqlite3_io_methods::Method>::call
const sqlite3_io_methods sMethods{.iVersion = 2,
                                  PASSING(xClose),
                                  FAULTY(xRead, Read),
                                  .xWrite = sWrite,
                                  FAULTY(xTruncate, Truncate),
                                  FAULTY(xSync, Sync),
                                  FAULTY(xFileSize, Size),
                                  PASSING(xLock),
                                  PASSING(xUnlock),
                                  PASSING(xCheckReservedLock),
                                  PASSING(xFileControl),
                                  PASSING(xSectorSize),
                                  PASSING(xDeviceCharacteristics),
                                  FAULTY(xShmMap, ShmMap),
                                  FAULTY(xShmLock, ShmLock),
                                  PASSING(xShmBarrier),
                                  PASSING(xShmUnmap),
                                  .xFetch = nullptr,
                                  .xUnfetch = nullptr};

int sOpen(sqlite3_vfs* /*apOwn*/, const char* apName, sqlite3_file* apFile, int aFlags, int* apFlags) {
    const int lFault = ZTCFaultyVfs::getFault(ZTEFileWork::Open);
    apFile->pMethods = nullptr;
    if (lFault != 0) {
        return lFault;
    }
    const int lResult = spBelow->xOpen(spBelow, apName, sBelow(apFile), aFlags, apFlags);
    apFile->pMethods = sBelow(apFile)->pMethods != nullptr ? &sMethods : nullptr;
    return lResult;
}

int sDelete(sqlite3_vfs* /*apOwn*/, const char* apName, int aSyncs) {
    const int lFault = ZTCFaultyVfs::getFault(ZTEFileWork::Delete);
    return lFault != 0 ? lFault : spBelow->xDelete(spBelow, apName, aSyncs);
}

// The others of the system's layer do not look at which layer they are called for.
sqlite3_vfs* sLayer() {
    static sqlite3_vfs sOwn = [] {
        spBelow = sqlite3_vfs_find("unix");
        sqlite3_vfs lOwn = *spBelow;
        lOwn.zName = "faulty";
        lOwn.szOsFile += static_cast<int>(sizeof(ZTSFaultyFile));
        lOwn.xOpen = sOpen;
        lOwn.xDelete = sDelete;
        return lOwn;
    }();
    return &sOwn;
}

// By ZTEFileWork.
constexpr int sFaults[] = {SQLITE_CANTOPEN,     SQLITE_IOERR_DELETE,   SQLITE_IOERR_READ,
                           SQLITE_IOERR_WRITE,  SQLITE_IOERR_TRUNCATE, SQLITE_IOERR_FSYNC,
                           SQLITE_IOERR_SHMMAP, SQLITE_IOERR_SHMLOCK,  SQLITE_IOERR_FSTAT};

unsigned int sBits(std::initializer_list<ZTEFileWork> aWork) {
    unsigned int lBits = 0;
    for (const ZTEFileWork lWork : aWork) {
        lBits |= sBit(lWork);
    }
    return lBits;
}

}  // namespace

ZTCFaultyVfs::ZTCFaultyVfs(std::initializer_list<ZTEFileWork> aWork, unsigned int aFailing, bool aIsForGood)
    : mWork(sBits(aWork)), mFailing(aFailing), mIsForGood(aIsForGood) {
    spCurrent = this;
    sqlite3_vfs_register(sLayer(), 1);
}

ZTCFaultyVfs::~ZTCFaultyVfs() {
    sqlite3_vfs_unregister(sLayer());
    sqlite3_vfs_register(spBelow, 1);
    spCurrent = nullptr;
}

int ZTCFaultyVfs::getFault(ZTEFileWork aWork) {
    ZTCFaultyVfs* const lpCurrent = spCurrent;
    if (lpCurrent == nullptr || (lpCurrent->mWork & sBit(aWork)) == 0) {
        return 0;
    }
    const unsigned int lCall = ++lpCurrent->mCalls;
    std::this_thread::sleep_for(lpCurrent->mDelay.load());
    const unsigned int lFailing = lpCurrent->mFailing;
    if (lFailing == 0 || lCall < lFailing || (lCall > lFailing && !lpCurrent->mIsForGood)) {
        return 0;
    }
    lpCurrent->mHasFailed = true;
    return sFaults[static_cast<unsigned int>(aWork)];
}

bool ZTCFaultyVfs::isFull() {
    const ZTCFaultyVfs* const lpCurrent = spCurrent;
    return lpCurrent != nullptr && lpCurrent->mIsFull;
}
