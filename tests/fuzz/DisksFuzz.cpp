// Whatever the kernel, /proc or multipathd sends of disks: what is read lies within the bytes, and nothing is
// told that is not there.
#include <algorithm>
#include <cstdlib>
#include <vector>

#include "DiskStats.h"
#include "DiskTimes.h"
#include "Multipathd.h"
#include "Stalls.h"
#include "Uevent.h"

namespace {

void sReadUevent(std::span<const unsigned char> aBytes) {
    const auto lEvent = readUevent(aBytes);
    if (!lEvent) {
        return;
    }
    const auto* const lpBytes = reinterpret_cast<const char*>(aBytes.data());
    const auto lIsWithin = [&](std::string_view aText) {
        return aText.data() >= lpBytes && aText.data() + aText.size() <= lpBytes + aBytes.size();
    };
    for (const auto& [lrName, lrValue] : lEvent->mValues) {
        if (!lIsWithin(lrName) || !lIsWithin(lrValue) || lrName.empty()) {
            abort();
        }
    }
    if (!lIsWithin(lEvent->mAction) || !lIsWithin(lEvent->mPath) || lEvent->mAction.empty()) {
        abort();
    }
}

// Each line is a disk of its own at most; what the parts of the text say is a look each.
void sReadDiskStats(std::string_view aText) {
    ZTCStalls lStalls;
    ZTCDiskTimes lTimes;
    ZTCMeasures lMeasures;
    ZTSHostStorage lStorage;
    lStorage.mLuns.emplace_back().mDisk = "sda";
    for (ZTNanoseconds lTime = 0; !aText.empty(); lTime += 5 * ZTSecond) {
        const std::string_view lLook = aText.substr(0, aText.find('\0'));
        aText.remove_prefix(std::min(lLook.size() + 1, aText.size()));
        const auto lStats = readDiskStats(lLook);
        const auto lWaiting = std::count_if(lStats.begin(), lStats.end(),
                                            [](const auto& acrStats) { return acrStats.mInFlight != 0; });
        lStalls.look(lStats, lStorage, lTime, ZTCStalls::Clock::time_point(std::chrono::nanoseconds(lTime)));
        lTimes.look(lStats, lStorage, lTime, lMeasures);
        if (static_cast<std::ptrdiff_t>(lStalls.countStalled()) > lWaiting ||
            static_cast<std::ptrdiff_t>(lStats.size()) > std::count(lLook.begin(), lLook.end(), '\n') + 1) {
            abort();
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* apInput, std::size_t aSize) {
    if (aSize == 0) {
        return 0;
    }
    const std::vector<unsigned char> lExact(apInput + 1, apInput + aSize);
    const std::string_view lText(reinterpret_cast<const char*>(lExact.data()), lExact.size());
    switch (apInput[0] % 3) {
        case 0:
            sReadUevent(lExact);
            break;
        case 1:
            sReadDiskStats(lText);
            break;
        default:
            for (const ZTSMultipathdPath& lrPath : readMultipathdPaths(lText)) {
                if (lrPath.mDisk.empty() || lrPath.mMap.find('\n') != std::string::npos) {
                    abort();
                }
            }
    }
    return 0;
}
