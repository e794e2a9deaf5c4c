#include "HostFacts.h"

std::vector<ZTSChange> listFactChanges(const ZTSHostFacts& acrBefore, const ZTSHostFacts& acrAfter,
                                       ZTNanoseconds aTime) {
    std::vector<ZTSChange> lChanges;
    const auto lCompare = [&](const std::string& acrOld, const std::string& acrNew, const ZTSChange& acrRow) {
        if (!acrOld.empty() && !acrNew.empty() && acrOld != acrNew) {
            lChanges.push_back(acrRow);
        }
    };
    // A boot is older than the look that finds it, unless the clock was set.
    const ZTNanoseconds lBooted = acrAfter.mBooted;
    const ZTNanoseconds lAt = lBooted > acrBefore.mBooted && lBooted < aTime ? lBooted : aTime;
    lCompare(acrBefore.mBoot, acrAfter.mBoot, {lAt, "host", "", "booted", "", "", acrAfter.mKernel});
    const auto lChanged = [&](const char* apName, const std::string& acrOld, const std::string& acrNew) {
        lCompare(acrOld, acrNew, {aTime, "host", "", "changed", apName, acrOld, acrNew});
    };
    lChanged("kernel", acrBefore.mKernel, acrAfter.mKernel);
    lChanged("multipath_config", acrBefore.mMultipathConfig, acrAfter.mMultipathConfig);
    return lChanges;
}
