#include "StoreMending.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <vector>

#include "OwnDescriptors.h"
#include "PageSums.h"
#include "StoreFile.h"

namespace {

constexpr std::size_t sPagesAtOnce = 256;

/// A page without its sum, and its number.
using Visitor = std::function<void(unsigned char*, std::size_t)>;

// Pages that are cut short are none: SQLite says so.
void sVisitUnsummed(int aFile, const std::string& acrPath, const Visitor& acrVisit) {
    std::vector<unsigned char> lBytes(sPagesAtOnce * ZTPageSize);
    std::size_t lPage = 0;
    for (std::size_t lCount = sPagesAtOnce; lCount == sPagesAtOnce;) {
        const ssize_t lRead =
            pread(aFile, lBytes.data(), lBytes.size(), static_cast<off_t>(lPage * ZTPageSize));
        if (lRead < 0) {
            throw toStoreError(errno, acrPath);
        }
        lCount = static_cast<std::size_t>(lRead) / ZTPageSize;
        for (std::size_t lAt = 0; lAt < lCount; ++lAt) {
            unsigned char* const lpPage = lBytes.data() + lAt * ZTPageSize;
            ++lPage;
            if (!hasPageSum(lpPage, lPage)) {
                acrVisit(lpPage, lPage);
            }
        }
    }
}

bool sHasAllSums(const std::string& acrPath) {
    std::size_t lMissing = 0;
    withOwnDescriptors(acrPath, [&] {
        const ZTCStoreDescriptor lFile(open(acrPath.c_str(), O_RDONLY | O_CLOEXEC));
        sVisitUnsummed(lFile.get(), acrPath, [&](unsigned char*, std::size_t) { ++lMissing; });
    });
    return lMissing == 0;
}

void sPutSums(const std::string& acrPath) {
    withOwnDescriptors(acrPath, [&] {
        const ZTCStoreDescriptor lFile(open(acrPath.c_str(), O_RDWR | O_CLOEXEC));
        sVisitUnsummed(lFile.get(), acrPath, [&](unsigned char* apPage, std::size_t aNumber) {
            constexpr std::size_t lPlace = ZTPageSize - ZTPageSumSize;
            putPageSum(apPage, aNumber);
            const auto lOffset = static_cast<off_t>((aNumber - 1) * ZTPageSize + lPlace);
            if (pwrite(lFile.get(), apPage + lPlace, ZTPageSumSize, lOffset) !=
                static_cast<ssize_t>(ZTPageSumSize)) {
                throw toStoreError(errno, acrPath);
            }
        });
        if (fsync(lFile.get()) != 0) {
            throw toStoreError(errno, acrPath);
        }
    });
}

// By the layer that knows of no sums. It makes no files beside the store: were it cut short, the next one
// would take them for those of a vrx-sn.
SQLite::Database sOpenPlain(const std::string& acrPath) {
    std::string lUri = "file:";
    for (const char lByte : acrPath) {
        lUri += lByte == '%' ? "%25" : lByte == '?' ? "%3f" : lByte == '#' ? "%23" : std::string(1, lByte);
    }
    return {lUri + "?immutable=1", SQLite::OPEN_READONLY | SQLite::OPEN_URI};
}

// What a flipped byte in a number may have changed. Of what has been retired only the totals are known.
constexpr char sTotalsAgree[] =
    "SELECT (SELECT coalesce(sum(events), 0) FROM series) = (SELECT coalesce(sum(occurrences), 0) FROM records)"
    " + coalesce((SELECT value FROM meta WHERE name = 'retired_events'), 0) AND"
    " (SELECT coalesce(sum(records), 0) FROM series) = (SELECT count(*) FROM records)"
    " + coalesce((SELECT value FROM meta WHERE name = 'retired_records'), 0)";

bool sIsWhole(const std::string& acrPath) {
    try {
        SQLite::Database lStore = sOpenPlain(acrPath);
        return lStore.execAndGet("PRAGMA quick_check(1)").getString() == "ok" &&
               lStore.execAndGet(sTotalsAgree).getInt() == 1;
    } catch (const SQLite::Exception& lrError) {
        if (toStoreError(lrError, acrPath).getFault() != ZTEStoreFault::Damaged) {
            throw;
        }
        return false;
    }
}

bool sIsThere(const std::string& acrPath) {
    return access(acrPath.c_str(), F_OK) == 0;
}

}  // namespace

ZTEStoreMending mendPageSums(const std::string& acrPath) {
    // With a journal it was just being made: SQLite takes that back.
    if (sIsThere(acrPath + "-wal") || sIsThere(acrPath + "-journal") || sHasAllSums(acrPath)) {
        return ZTEStoreMending::NotNeeded;
    }
    if (!sIsWhole(acrPath)) {
        return ZTEStoreMending::Damaged;
    }
    sPutSums(acrPath);
    return ZTEStoreMending::Mended;
}
