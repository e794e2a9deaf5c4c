#include "DiskTimes.h"

#include <algorithm>
#include <map>
#include <utility>

namespace {

// A look's: of more it is no counter that wrapped, but another disk's.
constexpr std::uint32_t sMostCommands = std::uint32_t{1} << 24U;
constexpr std::uint64_t sLongestMean = 3'600'000;
constexpr std::uint64_t sLooksKept = 12;

}  // namespace

void ZTCDiskTimes::Sum::add(const Sum& acrMore) {
    mCommands += acrMore.mCommands;
    mMilliseconds += acrMore.mMilliseconds;
    mSlowest = std::max(mSlowest, acrMore.mSlowest);
}

void ZTCDiskTimes::Sum::tell(const auto& acrDo) const {
    acrDo("commands", mCommands);
    acrDo("command_us", mMilliseconds * 1000);
    acrDo("slowest_us", mSlowest);
}

void ZTCDiskTimes::look(const std::vector<ZTSDiskStats>& acrStats, const ZTSHostStorage& acrStorage,
                        ZTNanoseconds aTime, ZTCMeasures& arMeasures) {
    ++mLook;
    for (const ZTSDiskStats& lrStats : acrStats) {
        const auto [lAt, lIsNew] = mDisks.try_emplace(lrStats.mDisk);
        Disk& lrDisk = lAt->second;
        if (lIsNew) {
            lrDisk.mTurn = mDisks.size() % sLooksKept;
        } else {
            count(lrDisk, lrStats);
        }
        lrDisk.mCompleted = lrStats.mCompleted;
        lrDisk.mMilliseconds = lrStats.mMilliseconds;
        lrDisk.mLook = mLook;
    }
    ZTCMeasures lMeasures;
    addByPorts(acrStorage, aTime, lMeasures);
    tell(aTime, lMeasures, arMeasures, [this](const Disk& acrDisk) {
        return acrDisk.mLook != mLook || mLook % sLooksKept == acrDisk.mTurn;
    });
    std::erase_if(mDisks, [this](const auto& acrDisk) { return acrDisk.second.mLook != mLook; });
}

void ZTCDiskTimes::end(ZTNanoseconds aTime, ZTCMeasures& arMeasures) {
    tell(aTime, {}, arMeasures, [](const Disk&) { return true; });
}

// Nothing is thrown behind the first join, and nothing has been told before it.
void ZTCDiskTimes::tell(ZTNanoseconds aTime, ZTCMeasures aMeasures, ZTCMeasures& arMeasures,
                        const auto& acrIsDue) {
    for (const auto& [lrName, lrDisk] : mDisks) {
        if (acrIsDue(lrDisk)) {
            Sum lSum = lrDisk.mKept;
            lSum.add(lrDisk.mNew);
            addToHour(lrDisk, lSum, aTime, aMeasures);
        }
    }
    arMeasures.join(std::move(aMeasures));
    arMeasures.join(std::exchange(mLeft, {}));
    for (auto& [lrName, lrDisk] : mDisks) {
        if (acrIsDue(lrDisk)) {
            lrDisk.mKept = {};
        } else {
            lrDisk.mKept.add(lrDisk.mNew);
        }
        lrDisk.mNew = {};
    }
}

void ZTCDiskTimes::addToHour(const Disk& acrDisk, const Sum& acrSum, ZTNanoseconds aTime,
                             ZTCMeasures& arMeasures) {
    if (!acrDisk.mWhose.mLun.empty()) {
        acrSum.tell([&](const char* apName, std::uint64_t aValue) {
            arMeasures.addToHour(aTime, acrDisk.mWhose, apName, aValue);
        });
    }
}

void ZTCDiskTimes::addByPorts(const ZTSHostStorage& acrStorage, ZTNanoseconds aTime,
                              ZTCMeasures& arMeasures) {
    std::map<std::pair<ZTSWwn, ZTSWwn>, Sum> lSums;
    for (const ZTSLun& lrLun : acrStorage.mLuns) {
        const auto lAt = mDisks.find(lrLun.mDisk);
        if (lAt == mDisks.end()) {
            continue;
        }
        setLun(lAt->second, lrLun, aTime);
        const Sum& lrNew = lAt->second.mNew;
        if (lrNew.mCommands != 0 && lrLun.mInitiator != ZTSWwn() && lrLun.mTarget != ZTSWwn()) {
            lSums[{lrLun.mInitiator, lrLun.mTarget}].add(lrNew);
        }
    }
    for (auto& [lrPorts, lrSum] : lSums) {
        lrSum.mSlowest = lrSum.mMilliseconds * 1000 / lrSum.mCommands;
        const ZTSMeasured lWhose{lrPorts.first, lrPorts.second, {}};
        lrSum.tell(
            [&](const char* apName, std::uint64_t aValue) { arMeasures.add(aTime, lWhose, apName, aValue); });
    }
}

void ZTCDiskTimes::setLun(Disk& arDisk, const ZTSLun& acrLun, ZTNanoseconds aTime) {
    const std::string& lrLun = acrLun.mWwid.empty() ? acrLun.mAddress : acrLun.mWwid;
    ZTSMeasured& lrWhose = arDisk.mWhose;
    const bool lIsPlace = lrWhose.mInitiator == acrLun.mInitiator && lrWhose.mRemote == acrLun.mTarget &&
                          arDisk.mLun == acrLun.mLun;
    if (lIsPlace && lrWhose.mLun == lrLun) {
        return;
    }
    ZTSMeasured lWhose{acrLun.mInitiator, acrLun.mTarget, lrLun};
    ZTCMeasures lLeft;
    addToHour(arDisk, arDisk.mKept, aTime, lLeft);
    mLeft.join(std::move(lLeft));
    if (!lrWhose.mLun.empty() && !lIsPlace) {
        arDisk.mNew = {};  // nobody knows how much of it is this one's
    }
    arDisk.mKept = {};
    arDisk.mLun = acrLun.mLun;
    lrWhose = std::move(lWhose);
}

void ZTCDiskTimes::count(Disk& arDisk, const ZTSDiskStats& acrStats) {
    // The parts of the milliseconds wrap at 32 bits each, so their sum's difference is right in as many; the
    // commands' do on hosts of 32 bits. What is less otherwise is a disk that came back under the name.
    std::uint64_t lCommands = acrStats.mCompleted - arDisk.mCompleted;
    if (acrStats.mCompleted < arDisk.mCompleted) {
        lCommands = static_cast<std::uint32_t>(lCommands);
    }
    const auto lMilliseconds = static_cast<std::uint32_t>(acrStats.mMilliseconds - arDisk.mMilliseconds);
    if (lCommands != 0 && lCommands <= sMostCommands && lMilliseconds <= lCommands * sLongestMean) {
        arDisk.mNew.add({lCommands, lMilliseconds, lMilliseconds * std::uint64_t{1000} / lCommands});
    }
}
