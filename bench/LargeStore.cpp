#include "LargeStore.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <random>

#include "EventBlock.h"
#include "StoreWriter.h"

namespace {

constexpr unsigned int sInitiators = 4;
constexpr unsigned int sTargets = 16;
constexpr unsigned int sPattern = 20000;   // rows of a transaction
constexpr std::uint64_t sStormEvery = 40;  // transactions

struct Kind {
    std::uint8_t mCategory;
    std::uint8_t mSubcategory;
    unsigned int mShare;
    std::size_t mBytes;  // of a block
};
// On an ordinary day, and while an array has trouble.
constexpr Kind sQuiet[] = {{4, 4, 30, 128}, {4, 1, 20, 48}, {1, 1, 15, 20}, {1, 16, 10, 20},
                           {1, 32, 10, 8},  {4, 2, 10, 48}, {1, 8, 5, 32},  {8, 2, 1, 4}};
constexpr Kind sStorm[] = {{4, 4, 80, 128}, {4, 1, 15, 48}, {1, 8, 5, 32}};

ZTSWwn sPort(std::uint8_t aFirst, unsigned int aNumber) {
    return {{aFirst, 0, 0, 0x25, 0xb5, 1, 0, static_cast<std::uint8_t>(aNumber)}};
}
ZTSWwn sInitiator(unsigned int aNumber) {
    return sPort(0x10, aNumber);
}
ZTSWwn sTarget(unsigned int aNumber) {
    return sPort(0x50, aNumber);
}
const char* sFabric(unsigned int aNumber) {
    return aNumber % 2 == 0 ? "left" : "right";
}

unsigned int sBelow(std::mt19937& arRandom, std::size_t aEnd) {
    return static_cast<unsigned int>(arRandom() % aEnd);
}

template <std::size_t Count>
const Kind& sDraw(const Kind (&acrKinds)[Count], std::mt19937& arRandom) {
    unsigned int lShares = 0;
    for (const Kind& lrKind : acrKinds) {
        lShares += lrKind.mShare;
    }
    unsigned int lAt = sBelow(arRandom, lShares);
    const Kind* lpKind = acrKinds;
    for (; lAt >= lpKind->mShare; ++lpKind) {
        lAt -= lpKind->mShare;
    }
    return *lpKind;
}

// The block of a kind as the agent lays it out: of what it needs no more than that it can be read.
std::vector<std::uint8_t> sBlock(const Kind& acrKind, const ZTSWwn& acrRemote, std::mt19937& arRandom) {
    std::vector<std::uint8_t> lBlock(acrKind.mBytes);
    const std::span<std::uint8_t> lBytes(lBlock);
    const auto lPut = [&](std::size_t aAt, std::uint32_t aWord) {
        for (std::size_t lByte = 0; lByte < 4 && aAt + 4 <= lBytes.size(); ++lByte) {
            lBytes[aAt + lByte] = static_cast<std::uint8_t>(aWord >> 8 * lByte);
        }
    };
    lPut(0, 1);
    if (acrKind.mBytes >= 20) {
        std::ranges::copy(acrRemote.mBytes, lBytes.begin() + 4);
    }
    if (acrKind.mBytes == 128) {
        constexpr std::uint32_t lSenses[][2] = {
            {6, 0x2900}, {2, 0x040a}, {11, 0x4700}, {3, 0x1100}, {5, 0x2400}};
        const auto& lrSense = lSenses[sBelow(arRandom, std::size(lSenses))];
        lPut(12, lrSense[0]);
        lPut(16, lrSense[1]);
    }
    constexpr std::size_t lSets[] = {12, 20, 56, 92};
    for (const std::size_t lAt : lSets) {
        if ((acrKind.mBytes == 48 && lAt == 12) || (acrKind.mBytes == 128 && lAt > 12)) {
            lPut(lAt, ZTEventSetSize);
            lPut(lAt + 4, 1U << sBelow(arRandom, 8));
        }
    }
    if (acrKind.mBytes == 32) {
        lPut(12, 3);
        lPut(16, 9);
        lPut(20, 0x29);
    }
    return lBlock;
}

// Rows of which only ids and times are new each time.
ZTSStoreBatch sMakeRows(bool aIsStorm) {
    std::mt19937 lRandom(aIsStorm ? 2 : 1);
    ZTSStoreBatch lBatch;
    for (unsigned int lAt = 0; lAt < sPattern; ++lAt) {
        const Kind& lrKind = aIsStorm ? sDraw(sStorm, lRandom) : sDraw(sQuiet, lRandom);
        const unsigned int lInitiator = sBelow(lRandom, sInitiators);
        // A port sees those of its fabric.
        const unsigned int lTarget = (aIsStorm ? 0 : sBelow(lRandom, sTargets / 2)) * 2 + lInitiator % 2;
        ZTSStoreRow& lrRow = lBatch.mRows.emplace_back();
        lrRow.mRecord.mOccurrences = lrRow.mAdded = 1 + sBelow(lRandom, aIsStorm ? 50 : 3);
        ZTSSeries& lrSeries = lrRow.mRecord.mSeries;
        lrSeries.mCategory = lrKind.mCategory;
        lrSeries.mSubcategory = lrKind.mSubcategory;
        lrSeries.mInitiator = {sPort(0x20, lInitiator), sInitiator(lInitiator)};
        lrSeries.mFabric = sFabric(lInitiator);
        if (lrKind.mCategory != 8) {
            lrSeries.mRemote = sTarget(lTarget);
        }
        lrRow.mRecord.mData = sBlock(lrKind, sTarget(lTarget), lRandom);
    }
    return lBatch;
}

ZTSStoreBatch sMakeHost() {
    ZTSStoreBatch lBatch;
    lBatch.mPorts.emplace();
    for (unsigned int lPort = 0; lPort < sInitiators; ++lPort) {
        lBatch.mPorts->mLocal.push_back({{sPort(0x20, lPort), sInitiator(lPort)},
                                         fmt::format("host{}", lPort),
                                         "Online",
                                         "16 Gbit",
                                         "NPort",
                                         0x10200 + lPort,
                                         sFabric(lPort)});
        for (unsigned int lTarget = lPort % 2; lTarget < sTargets; lTarget += 2) {
            lBatch.mPorts->mRemote.push_back({sInitiator(lPort),
                                              {sPort(0x51, lTarget), sTarget(lTarget)},
                                              "Online",
                                              "FCP Target",
                                              0x20000 + lTarget,
                                              sFabric(lTarget)});
        }
    }
    lBatch.mLabels.emplace();
    for (unsigned int lTarget = 0; lTarget < sTargets; ++lTarget) {
        const unsigned int lArray = 1 + lTarget / 8;
        lBatch.mLabels->emplace(
            sTarget(lTarget),
            ZTSPortLabel{fmt::format("array{}-{}{}", lArray, lTarget / 4 % 2 == 0 ? 'A' : 'B', lTarget % 4),
                         fmt::format("array{}", lArray), lTarget / 4 % 2 == 0 ? "A" : "B", sFabric(lTarget),
                         ""});
    }
    return lBatch;
}

}  // namespace

std::string ztbench::largeStoreInitiator() {
    return sInitiator(0).toText();
}

void ztbench::makeLargeStore(const std::string& acrPath, std::uint64_t aRecords, ZTNanoseconds aEnd) {
    for (const char* const lpEnd : {"", "-wal", "-shm", "-lock"}) {
        std::filesystem::remove(acrPath + lpEnd);
    }
    ZTCStoreWriter lWriter({.mPath = acrPath, .mHostName = "bench"});
    lWriter.write(sMakeHost());
    ZTSStoreBatch lBatches[] = {sMakeRows(false), sMakeRows(true)};
    const ZTNanoseconds lStep =
        largeStoreSpan / static_cast<ZTNanoseconds>(std::max<std::uint64_t>(aRecords, 1));
    ZTNanoseconds lTime = aEnd - largeStoreSpan;
    std::uint64_t lId = 0;
    for (std::uint64_t lNumber = 1; lId < aRecords; ++lNumber) {
        ZTSStoreBatch& lrBatch = lBatches[lNumber % sStormEvery == 0 ? 1 : 0];
        lrBatch.mRows.resize(std::min<std::uint64_t>(lrBatch.mRows.size(), aRecords - lId));
        for (ZTSStoreRow& lrRow : lrBatch.mRows) {
            lrRow.mId = ++lId;
            lrRow.mRecord.mFirst = lrRow.mRecord.mLast = lTime;
            lTime += lStep;
        }
        lrBatch.mClosedTo = lId;
        lWriter.write(lrBatch);
        lWriter.checkpoint();
    }
    lWriter.finish();
}
