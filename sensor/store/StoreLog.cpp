#include "StoreLog.h"

#include <endian.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <vector>

#include "PageSums.h"
#include "StoreDescriptor.h"

// SQLite takes of a log what is whole from its begin on, up to a transaction's end: what comes behind a
// damaged place is as if it had never been written. That is right as long as nothing of it was brought into
// the main file; but then pages of the main file, which are newer, would stand beside older ones of the log,
// and no sum would be right. How far the log was brought in, only the index in FILE-shm says, and SQLite
// throws that away: so it is asked here, before. It is trusted as the process left it, not over a start of
// the machine: the disk may have an older one.

namespace {

// See "WAL-Mode File Format" of SQLite's documents.
constexpr std::size_t sLogHeader = 32;
constexpr std::size_t sFrameHeader = 24;
constexpr std::size_t sIndexHeader = 48;  // twice, the same

struct ZTSLogIndex {
    std::uint32_t mFrames = 0;
    std::uint32_t mBroughtIn = 0;
    std::uint32_t mBegun = 0;  // to be brought in
    std::array<unsigned char, 8> mSalt{};
};

using Sum = std::array<std::uint32_t, 2>;

std::uint32_t sNativeAt(const unsigned char* apBytes) {
    std::uint32_t lValue = 0;
    memcpy(&lValue, apBytes, sizeof lValue);
    return lValue;
}

std::uint32_t sBigAt(const unsigned char* apBytes) {
    return be32toh(sNativeAt(apBytes));
}

bool sReadIndex(const std::string& acrPath, ZTSLogIndex& arIndex) {
    std::array<unsigned char, 136> lBytes{};
    const ZTCStoreDescriptor lFile(open((acrPath + "-shm").c_str(), O_RDONLY | O_CLOEXEC));
    if (pread(lFile.get(), lBytes.data(), lBytes.size(), 0) != static_cast<ssize_t>(lBytes.size()) ||
        memcmp(lBytes.data(), lBytes.data() + sIndexHeader, sIndexHeader) != 0) {
        return false;  // none, or not one that was left in order: nobody knows
    }
    arIndex.mFrames = sNativeAt(lBytes.data() + 16);
    memcpy(arIndex.mSalt.data(), lBytes.data() + 32, arIndex.mSalt.size());
    arIndex.mBroughtIn = sNativeAt(lBytes.data() + 96);
    arIndex.mBegun = sNativeAt(lBytes.data() + 128);
    return arIndex.mBegun <= arIndex.mFrames;
}

void sAdd(Sum& arSum, const unsigned char* apBytes, std::size_t aCount, bool aIsBig) {
    for (std::size_t lAt = 0; lAt < aCount; lAt += 8) {
        const auto lWord = [&](std::size_t aWord) {
            const unsigned char* const lpWord = apBytes + lAt + aWord * 4;
            return aIsBig ? sBigAt(lpWord) : le32toh(sNativeAt(lpWord));
        };
        arSum[0] += lWord(0) + arSum[1];
        arSum[1] += lWord(1) + arSum[0];
    }
}

bool sHas(const unsigned char* apBytes, const Sum& acrSum) {
    return sBigAt(apBytes) == acrSum[0] && sBigAt(apBytes + 4) == acrSum[1];
}

bool sReadAll(int aFile, std::vector<unsigned char>& arBytes, std::size_t aOffset) {
    return pread(aFile, arBytes.data(), arBytes.size(), static_cast<off_t>(aOffset)) ==
           static_cast<ssize_t>(arBytes.size());
}

bool sAreFramesWhole(int aFile, const ZTSLogIndex& acrIndex) {
    std::vector<unsigned char> lBytes(sLogHeader);
    if (!sReadAll(aFile, lBytes, 0) || memcmp(lBytes.data() + 16, acrIndex.mSalt.data(), 8) != 0) {
        return false;
    }
    const bool lIsBig = (lBytes[3] & 1) != 0;
    Sum lSum{};
    sAdd(lSum, lBytes.data(), 24, lIsBig);
    if (!sHas(lBytes.data() + 24, lSum)) {
        return false;
    }
    lBytes.resize(sFrameHeader + ZTPageSize);
    for (std::size_t lFrame = 0; lFrame < acrIndex.mBegun; ++lFrame) {
        if (!sReadAll(aFile, lBytes, sLogHeader + lFrame * lBytes.size()) ||
            memcmp(lBytes.data() + 8, acrIndex.mSalt.data(), 8) != 0) {
            return false;
        }
        sAdd(lSum, lBytes.data(), 8, lIsBig);
        sAdd(lSum, lBytes.data() + sFrameHeader, ZTPageSize, lIsBig);
        if (!sHas(lBytes.data() + 16, lSum)) {
            return false;
        }
    }
    return true;
}

}  // namespace

bool isStoreLogWhole(const std::string& acrPath) {
    ZTSLogIndex lIndex;
    if (!sReadIndex(acrPath, lIndex) || lIndex.mBegun == 0) {
        return true;
    }
    const ZTCStoreDescriptor lLog(open((acrPath + "-wal").c_str(), O_RDONLY | O_CLOEXEC));
    struct stat lStatus {};
    if (fstat(lLog.get(), &lStatus) != 0 || lStatus.st_size == 0) {
        return lIndex.mBroughtIn == lIndex.mFrames;  // so an end in order leaves it
    }
    return sAreFramesWhole(lLog.get(), lIndex);
}
