#include "StoreLook.h"

#include <endian.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "OwnDescriptors.h"
#include "PageSums.h"
#include "StoreFile.h"
#include "StoreLog.h"

namespace {

using Page = std::array<unsigned char, ZTPageSize>;

std::int32_t sNumberAt(const Page& acrPage, std::size_t aOffset) {
    std::uint32_t lValue = 0;
    memcpy(&lValue, acrPage.data() + aOffset, sizeof lValue);
    return static_cast<std::int32_t>(be32toh(lValue));
}

// See "Database File Format" of SQLite's documents.
bool sIsOurs(const Page& acrPage) {
    constexpr char lMagic[16] = "SQLite format 3";
    return memcmp(acrPage.data(), lMagic, sizeof lMagic) == 0 && acrPage[16] == ZTPageSize >> 8 &&
           acrPage[17] == 0 && acrPage[20] == ZTPageSumSize && sNumberAt(acrPage, 68) == ZTStoreApplication;
}

// -1: it is not there.
off_t sSizeOf(const std::string& acrPath) {
    struct stat lStatus {};
    return stat(acrPath.c_str(), &lStatus) == 0 ? lStatus.st_size : -1;
}

// What has been ours can be set aside; what never was stays where it is. A file that lost its begin, or all,
// has been ours when a lock stands beside it: that is made only when the file is found to be ours, or
// missing.
ZTEStoreLook sLook(const std::string& acrPath, const ZTSStoreHolder& acrHolder) {
    const ZTCStoreDescriptor lFile(open(acrPath.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (lFile.get() < 0 && errno != ENOENT) {
        throw toStoreError(errno, acrPath);
    }
    struct stat lStatus {};
    const bool lIsThere = fstat(lFile.get(), &lStatus) == 0;
    if (lIsThere && !S_ISREG(lStatus.st_mode)) {
        throw toStoreError(S_ISDIR(lStatus.st_mode) ? EISDIR : ENODEV, acrPath);
    }
    if (lStatus.st_size == 0) {
        // The log is made after the first tables are in the file.
        const bool lHasLog = sSizeOf(acrPath + "-wal") >= (lIsThere ? 0 : 1);
        return acrHolder.mIsKnown && lHasLog ? ZTEStoreLook::Damaged : ZTEStoreLook::Nothing;
    }
    Page lPage{};
    if (pread(lFile.get(), lPage.data(), lPage.size(), 0) < 0) {
        throw toStoreError(errno, acrPath);
    }
    if (!sIsOurs(lPage)) {
        return acrHolder.mIsKnown ? ZTEStoreLook::Damaged : ZTEStoreLook::Foreign;
    }
    if (acrHolder.mIsHere || acrHolder.mIsAdded) {
        return ZTEStoreLook::Store;
    }
    // The log may have what was being brought into the file when that was cut short: SQLite knows then.
    const bool lHasLog = sSizeOf(acrPath + "-wal") > 0 || sSizeOf(acrPath + "-journal") > 0;
    const bool lIsCut = lStatus.st_size < static_cast<off_t>(ZTPageSize) * sNumberAt(lPage, 28);
    const bool lIsSummed = hasPageSum(lPage.data(), 1);
    if ((!lHasLog && (lIsCut || !lIsSummed)) || (acrHolder.mIsOfBoot && !isStoreLogWhole(acrPath))) {
        // One that has just been opened by another process changes as it is looked at.
        const ZTSStoreHolder lNow = acrHolder.mIsGone ? acrHolder : findStoreHolder(acrPath);
        return lNow.mIsHere || lNow.mIsAdded ? ZTEStoreLook::Store : ZTEStoreLook::Damaged;
    }
    return lIsSummed && sNumberAt(lPage, 60) > ZTStoreVersion ? ZTEStoreLook::Newer : ZTEStoreLook::Store;
}

}  // namespace

ZTEStoreLook lookAtStore(const std::string& acrPath, const ZTSStoreHolder& acrHolder) {
    ZTEStoreLook lLook = ZTEStoreLook::Nothing;
    withOwnDescriptors(acrPath, [&] { lLook = sLook(acrPath, acrHolder); });
    return lLook;
}
