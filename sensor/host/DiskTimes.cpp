#include "DiskTimes.h"

#include <map>
#include <utility>

namespace {

// A look's: of more it is no counter that wrapped, but another disk's.
constexpr std::uint32_t sMostCommands = std::uint32_t{1} << 24U;
constexpr std::uint64_t sLongestMean = 3'600'000;

struct Sum {
    std::uint64_t mCommands = 0;
    std::uint64_t mMilliseconds = 0;
};

void sAdd(const Sum& acrSum, const auto& acrAdd) {
    if (acrSum.mCommands != 0) {
        acrAdd("commands", acrSum.mCommands);
        acrAdd("command_us", acrSum.mMilliseconds * 1000);
        acrAdd("slowest_us", acrSum.mMilliseconds * 1000 / acrSum.mCommands);
    }
}

}  // namespace

void ZTCDiskTimes::look(const std::vector<ZTSDiskStats>& acrStats, const ZTSHostStorage& acrStorage,
                        ZTNanoseconds aTime, ZTCMeasures& arMeasures) {
    ++mLook;
    for (const ZTSDiskStats& lrStats : acrStats) {
        const auto [lAt, lIsNew] = mDisks.try_emplace(lrStats.mDisk);
        if (!lIsNew) {
            count(lAt->second, lrStats);
        }
        lAt->second.mCompleted = lrStats.mCompleted;
        lAt->second.mMilliseconds = lrStats.mMilliseconds;
        lAt->second.mLook = mLook;
    }
    std::erase_if(mDisks, [this](const auto& acrDisk) { return acrDisk.second.mLook != mLook; });
    ZTCMeasures lMeasures;
    std::map<Ports, Sum> lSums;
    for (const ZTSLun& lrLun : acrStorage.mLuns) {
        const auto lAt = mDisks.find(lrLun.mDisk);
        if (lAt == mDisks.end()) {
            continue;
        }
        Disk& lrDisk = lAt->second;
        const Ports lPorts{lrLun.mInitiator, lrLun.mTarget};
        if (lPorts != std::exchange(lrDisk.mPorts, lPorts) ||
            lrLun.mLun != std::exchange(lrDisk.mLun, lrLun.mLun)) {
            // Nobody knows by now how much of it is this one's.
            lrDisk.mNewCommands = lrDisk.mNewMilliseconds = 0;
        }
        if (lrDisk.mNewCommands == 0) {
            continue;
        }
        const Sum lSum{lrDisk.mNewCommands, lrDisk.mNewMilliseconds};
        const ZTSMeasured lWhose{lrLun.mInitiator, lrLun.mTarget,
                                 lrLun.mWwid.empty() ? lrLun.mAddress : lrLun.mWwid};
        sAdd(lSum, [&](const char* apName, std::uint64_t aValue) {
            lMeasures.addToHour(aTime, lWhose, apName, aValue);
        });
        if (lrLun.mInitiator != ZTSWwn() && lrLun.mTarget != ZTSWwn()) {
            lSums[lPorts].mCommands += lSum.mCommands;
            lSums[lPorts].mMilliseconds += lSum.mMilliseconds;
        }
    }
    for (const auto& [lrPorts, lrSum] : lSums) {
        const ZTSMeasured lWhose{lrPorts.mInitiator, lrPorts.mTarget, {}};
        sAdd(lrSum,
             [&](const char* apName, std::uint64_t aValue) { lMeasures.add(aTime, lWhose, apName, aValue); });
    }
    arMeasures.join(std::move(lMeasures));
    for (auto& [lrName, lrDisk] : mDisks) {
        lrDisk.mNewCommands = lrDisk.mNewMilliseconds = 0;
    }
}

void ZTCDiskTimes::count(Disk& arDisk, const ZTSDiskStats& acrStats) {
    // The parts of the milliseconds wrap at 32 bits each, so their sum's difference is right in as many; the
    // commands' do on hosts of 32 bits. What is less otherwise is a disk that came back under the name.
    std::uint64_t lCommands = acrStats.mCompleted - arDisk.mCompleted;
    if (acrStats.mCompleted < arDisk.mCompleted) {
        lCommands = static_cast<std::uint32_t>(lCommands);
    }
    const auto lMilliseconds = static_cast<std::uint32_t>(acrStats.mMilliseconds - arDisk.mMilliseconds);
    if (lCommands <= sMostCommands && lMilliseconds <= lCommands * sLongestMean) {
        arDisk.mNewCommands += lCommands;
        arDisk.mNewMilliseconds += lMilliseconds;
    }
}
