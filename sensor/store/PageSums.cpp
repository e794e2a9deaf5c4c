#include "PageSums.h"

#include <endian.h>
#include <sqlite3.h>

#include <array>
#include <bit>
#include <cstdint>
#include <cstring>

// Frames of the log beside the file have sums of SQLite's own, which it looks at when it begins to use a log
// that nobody else uses. They are not touched here: a page gets its sum on its way into the main file.
//
// A sqlite3 that is not ours reads the file as any other. One that writes it, leaves pages without a sum: its
// VACUUM; and when it is the first to open the file after vrx-sn was killed, and may write, also the pages
// that it brings from the log into the file when it ends. See StoreMending.h.

namespace {

constexpr std::size_t sWords = (ZTPageSize - ZTPageSumSize) / sizeof(std::uint64_t);
using Page = std::array<unsigned char, ZTPageSize>;

std::uint64_t sWordAt(const unsigned char* apPage, std::size_t aWord) {
    std::uint64_t lWord = 0;
    memcpy(&lWord, apPage + aWord * sizeof lWord, sizeof lWord);
    return le64toh(lWord);
}

std::uint64_t sMix(std::uint64_t aState, std::uint64_t aWord) {
    return std::rotl(aState ^ aWord, 31) * 0x9e3779b185ebca87;
}

// Four lanes, as no step of one waits for another's. Each step can be undone, so what differs in one word
// always differs in the sum. The page's number is in it for a page in a wrong place.
std::uint64_t sSum(const unsigned char* apPage, std::size_t aNumber) {
    std::array<std::uint64_t, 4> lLanes{aNumber, 1, 2, 3};
    std::size_t lWord = 0;
    for (; lWord + lLanes.size() <= sWords; lWord += lLanes.size()) {
        for (std::size_t lLane = 0; lLane < lLanes.size(); ++lLane) {
            lLanes[lLane] = sMix(lLanes[lLane], sWordAt(apPage, lWord + lLane));
        }
    }
    std::uint64_t lSum = 0x27d4eb2f165667c5;
    for (; lWord < sWords; ++lWord) {
        lSum = sMix(lSum, sWordAt(apPage, lWord));
    }
    for (const std::uint64_t lLane : lLanes) {
        lSum = sMix(lSum, lLane);
    }
    return lSum ^ (lSum >> 29);
}

struct ZTSSummedFile {
    sqlite3_file mFile;  // first: SQLite knows no more of it
    sqlite3_file* mpBelow;
    bool mIsMain;
    bool mIsWriting;  // in a transaction that writes
};

ZTSSummedFile& sGet(sqlite3_file* apFile) {
    return *reinterpret_cast<ZTSSummedFile*>(apFile);
}

sqlite3_file* sBelow(sqlite3_file* apFile) {
    return sGet(apFile).mpBelow;
}

// A page that is missing, or is not all there, is damage. But a transaction that writes may look again at a
// page that it has added itself, before it has written it.
int sReadPage(ZTSSummedFile& arFile, void* apPage, sqlite3_int64 aOffset) {
    const sqlite3_io_methods& lrBelow = *arFile.mpBelow->pMethods;
    const int lResult = lrBelow.xRead(arFile.mpBelow, apPage, static_cast<int>(ZTPageSize), aOffset);
    if (lResult == SQLITE_OK) {
        const std::size_t lNumber = static_cast<std::size_t>(aOffset) / ZTPageSize + 1;
        return hasPageSum(static_cast<const unsigned char*>(apPage), lNumber) ? SQLITE_OK : SQLITE_CORRUPT;
    }
    if (lResult != SQLITE_IOERR_SHORT_READ) {
        return lResult;
    }
    sqlite3_int64 lSize = 0;
    const int lAsked = lrBelow.xFileSize(arFile.mpBelow, &lSize);
    const bool lIsNew = arFile.mIsWriting && lSize <= aOffset;
    return lAsked != SQLITE_OK ? lAsked : lIsNew ? lResult : SQLITE_CORRUPT;
}

// What is smaller than any page is the header: SQLite looks at it before it has a lock, when it may be half
// written, and again, with its page, when it has one. Pages of another size come of a header that is wrong.
int sRead(sqlite3_file* apFile, void* apBytes, int aCount, sqlite3_int64 aOffset) {
    constexpr int lSmallestPage = 512;
    sqlite3_file* const lpBelow = sBelow(apFile);
    if (!sGet(apFile).mIsMain || aCount < lSmallestPage) {
        return lpBelow->pMethods->xRead(lpBelow, apBytes, aCount, aOffset);
    }
    return aCount == static_cast<int>(ZTPageSize) && aOffset % aCount == 0
               ? sReadPage(sGet(apFile), apBytes, aOffset)
               : SQLITE_CORRUPT;
}

// Into a copy: SQLite may be using the page, and a reader in another thread may as well.
int sWrite(sqlite3_file* apFile, const void* apBytes, int aCount, sqlite3_int64 aOffset) {
    sqlite3_file* const lpBelow = sBelow(apFile);
    if (!sGet(apFile).mIsMain || aCount != static_cast<int>(ZTPageSize) || aOffset % aCount != 0) {
        return lpBelow->pMethods->xWrite(lpBelow, apBytes, aCount, aOffset);
    }
    Page lPage;
    memcpy(lPage.data(), apBytes, ZTPageSize);
    putPageSum(lPage.data(), static_cast<std::size_t>(aOffset) / ZTPageSize + 1);
    return lpBelow->pMethods->xWrite(lpBelow, lPage.data(), aCount, aOffset);
}

// Without a log.
int sLock(sqlite3_file* apFile, int aLevel) {
    const int lResult = sBelow(apFile)->pMethods->xLock(sBelow(apFile), aLevel);
    sGet(apFile).mIsWriting |= lResult == SQLITE_OK && aLevel >= SQLITE_LOCK_RESERVED;
    return lResult;
}

int sUnlock(sqlite3_file* apFile, int aLevel) {
    sGet(apFile).mIsWriting &= aLevel >= SQLITE_LOCK_RESERVED;
    return sBelow(apFile)->pMethods->xUnlock(sBelow(apFile), aLevel);
}

// With a log, where the first of its locks is the writer's.
int sShmLock(sqlite3_file* apFile, int aFirst, int aCount, int aFlags) {
    const int lResult = sBelow(apFile)->pMethods->xShmLock(sBelow(apFile), aFirst, aCount, aFlags);
    if (aFirst == 0 && lResult == SQLITE_OK) {
        sGet(apFile).mIsWriting = (aFlags & SQLITE_SHM_LOCK) != 0;
    }
    return lResult;
}

int sClose(sqlite3_file* apFile) {
    const int lResult = sBelow(apFile)->pMethods->xClose(sBelow(apFile));
    sqlite3_free(sBelow(apFile));
    return lResult;
}

// All else is the layer's below.
template <auto Method>
struct ZTSBelow;
template <class... Arguments, int (*sqlite3_io_methods::*Method)(sqlite3_file*, Arguments...)>
struct ZTSBelow<Method> {
    static int call(sqlite3_file* apFile, Arguments... aArguments) {
        return (sBelow(apFile)->pMethods->*Method)(sBelow(apFile), aArguments...);
    }
};
template <class... Arguments, void (*sqlite3_io_methods::*Method)(sqlite3_file*, Arguments...)>
struct ZTSBelow<Method> {
    static void call(sqlite3_file* apFile, Arguments... aArguments) {
        (sBelow(apFile)->pMethods->*Method)(sBelow(apFile), aArguments...);
    }
};
template <class Result, class... Arguments, Result (*sqlite3_vfs::*Method)(sqlite3_vfs*, Arguments...)>
struct ZTSBelow<Method> {
    static Result call(sqlite3_vfs* /*apOwn*/, Arguments... aArguments) {
        sqlite3_vfs* const lpBelow = sqlite3_vfs_find(nullptr);
        return (lpBelow->*Method)(lpBelow, aArguments...);
    }
};

template <auto Method>
constexpr auto sPass = ZTSBelow<Method>::call;

// Version 2: a file is never mapped, for what is read so passes nobody.
const sqlite3_io_methods sMethods{
    .iVersion = 2,
    .xClose = sClose,
    .xRead = sRead,
    .xWrite = sWrite,
    .xTruncate = sPass<&sqlite3_io_methods::xTruncate>,
    .xSync = sPass<&sqlite3_io_methods::xSync>,
    .xFileSize = sPass<&sqlite3_io_methods::xFileSize>,
    .xLock = sLock,
    .xUnlock = sUnlock,
    .xCheckReservedLock = sPass<&sqlite3_io_methods::xCheckReservedLock>,
    .xFileControl = sPass<&sqlite3_io_methods::xFileControl>,
    .xSectorSize = sPass<&sqlite3_io_methods::xSectorSize>,
    .xDeviceCharacteristics = sPass<&sqlite3_io_methods::xDeviceCharacteristics>,
    .xShmMap = sPass<&sqlite3_io_methods::xShmMap>,
    .xShmLock = sShmLock,
    .xShmBarrier = sPass<&sqlite3_io_methods::xShmBarrier>,
    .xShmUnmap = sPass<&sqlite3_io_methods::xShmUnmap>,
    .xFetch = nullptr,
    .xUnfetch = nullptr};

int sOpen(sqlite3_vfs* /*apOwn*/, sqlite3_filename apName, sqlite3_file* apFile, int aFlags, int* apFlags) {
    sqlite3_vfs* const lpLayer = sqlite3_vfs_find(nullptr);
    auto* const lpBelow =
        static_cast<sqlite3_file*>(sqlite3_malloc64(static_cast<sqlite3_uint64>(lpLayer->szOsFile)));
    apFile->pMethods = nullptr;  // it is not to be closed, unless it has been opened
    if (lpBelow == nullptr) {
        return SQLITE_NOMEM;
    }
    memset(lpBelow, 0, static_cast<std::size_t>(lpLayer->szOsFile));
    const int lResult = lpLayer->xOpen(lpLayer, apName, lpBelow, aFlags, apFlags);
    if (lpBelow->pMethods == nullptr) {
        sqlite3_free(lpBelow);
        return lResult;
    }
    sGet(apFile) = {{&sMethods}, lpBelow, (aFlags & SQLITE_OPEN_MAIN_DB) != 0, false};
    return lResult;
}

}  // namespace

bool hasPageSum(const unsigned char* apPage, std::size_t aNumber) {
    return sWordAt(apPage, sWords) == sSum(apPage, aNumber);
}

void putPageSum(unsigned char* apPage, std::size_t aNumber) {
    const std::uint64_t lSum = htole64(sSum(apPage, aNumber));
    memcpy(apPage + ZTPageSize - ZTPageSumSize, &lSum, sizeof lSum);
}

const char* usePageSums() {
    static sqlite3_vfs sLayer = [] {
        sqlite3_vfs lLayer{};
        lLayer.iVersion = 2;
        lLayer.szOsFile = sizeof(ZTSSummedFile);
        lLayer.mxPathname = 4096;
        lLayer.zName = "vrx";
        lLayer.xOpen = sOpen;
        lLayer.xDelete = sPass<&sqlite3_vfs::xDelete>;
        lLayer.xAccess = sPass<&sqlite3_vfs::xAccess>;
        lLayer.xFullPathname = sPass<&sqlite3_vfs::xFullPathname>;
        lLayer.xRandomness = sPass<&sqlite3_vfs::xRandomness>;
        lLayer.xSleep = sPass<&sqlite3_vfs::xSleep>;
        lLayer.xCurrentTime = sPass<&sqlite3_vfs::xCurrentTime>;
        lLayer.xGetLastError = sPass<&sqlite3_vfs::xGetLastError>;
        lLayer.xCurrentTimeInt64 = sPass<&sqlite3_vfs::xCurrentTimeInt64>;
        return lLayer;
    }();
    // Without memory it is not there, and opening says that there is none of that name.
    return sqlite3_vfs_register(&sLayer, 0) == SQLITE_OK ? sLayer.zName : "vrx";
}
