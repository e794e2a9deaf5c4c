// Whatever the kernel, /proc or multipathd sends of disks: what is read lies within the bytes, and nothing is
// told that is not there.
#include <cstdlib>
#include <vector>

#include "DiskStats.h"
#include "DiskTimes.h"
#include "Multipathd.h"
#include "Stalls.h"
#include "Uevent.h"

namespace {

void sExpect(bool aHolds) {
    if (!aHolds) {
        abort();
    }
}

void sReadUevent(std::span<const unsigned char> aBytes) {
    const auto lEvent = readUevent(aBytes);
    std::size_t lBytes = lEvent ? lEvent->mAction.size() + lEvent->mPath.size() : 0;
    sExpect(!lEvent || !lEvent->mAction.empty());
    for (const auto& [lrName, lrValue] : lEvent ? lEvent->mValues : decltype(lEvent->mValues)()) {
        lBytes += lrName.size() + lrValue.size();
        sExpect(!lrName.empty() && lrValue.find('\0') == std::string_view::npos);
    }
    sExpect(lBytes <= aBytes.size());
}

// What stands before each 0 is a look.
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
        lStalls.look(lStats, lStorage, lTime, ZTCStalls::Clock::time_point(std::chrono::nanoseconds(lTime)));
        lTimes.look(lStats, lStorage, lTime, lMeasures);
        sExpect(lStalls.countStalled() <= lStats.size() && lStats.size() <= lLook.size() / 20);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* apInput, std::size_t aSize) {
    const std::vector<unsigned char> lExact(apInput + (aSize != 0 ? 1 : 0), apInput + aSize);
    const std::string_view lText(reinterpret_cast<const char*>(lExact.data()), lExact.size());
    switch (aSize != 0 ? apInput[0] % 3 : 0) {
        case 0:
            sReadUevent(lExact);
            break;
        case 1:
            sReadDiskStats(lText);
            break;
        default:
            for (const ZTSMultipathdPath& lrPath : readMultipathdPaths(lText)) {
                sExpect(!lrPath.mDisk.empty() && lrPath.mMap.find('\n') == std::string::npos);
            }
    }
    return 0;
}
