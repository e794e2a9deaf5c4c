#include "BlindSpots.h"

#include <algorithm>
#include <string_view>

namespace {

// Drivers of which it is known that they post no FPINs: the kernel's own one for Ethernet.
constexpr std::string_view sWithoutFpins[] = {"fcoe"};

bool sPostsNoFpins(const ZTSLocalPort& acrPort) {
    const std::string_view lDriver = std::string_view(acrPort.mDriver).substr(0, acrPort.mDriver.find(' '));
    return std::find(std::begin(sWithoutFpins), std::end(sWithoutFpins), lDriver) != std::end(sWithoutFpins);
}

class Spots {
  public:
    Spots(const ZTSSight& acrSight, const ZTSHostPorts& acrPorts)
        : mrSight(acrSight), mrPorts(acrPorts), mSpots(acrSight.mCounters) {}

    std::vector<ZTSBlindSpot> list() {
        addScsiErrors();
        addFpins();
        addPorts();
        addStorage();
        if (!mrSight.mNoUevents.empty()) {
            add("uevents", "", mrSight.mNoUevents);
        }
        std::sort(mSpots.begin(), mSpots.end());
        return std::move(mSpots);
    }

  private:
    void add(std::string aWhat, std::string aWhere, std::string aWhy, bool aIsSure = true) {
        mSpots.push_back({std::move(aWhat), std::move(aWhere), std::move(aWhy), aIsSure});
    }
    void addScsiErrors();
    void addFpins();
    void addPorts();
    void addStorage();

    const ZTSSight& mrSight;
    const ZTSHostPorts& mrPorts;
    std::vector<ZTSBlindSpot> mSpots;
};

void Spots::addScsiErrors() {
    const auto lHas = [&](const char* apRow) {
        const auto lRow = mrSight.mLibrary->find(apRow);
        return lRow != mrSight.mLibrary->end() && lRow->second != 0;
    };
    if (!mrSight.mIsAgentHere) {
        add("scsi_errors", "", "no agent runs");
    } else if (mrSight.mLibrary && !lHas("way{name=\"bpf\"}") && !lHas("way{name=\"perf\"}")) {
        add("scsi_errors", "", "the agent's library has no way to the commands that fail");
    } else if (!mrSight.mLibrary && !mrSight.mHasCheckConditions) {
        add("scsi_errors", "", "none has come yet: the agent's library may tell of none", false);
    }
}

void Spots::addFpins() {
    bool lIsSilent = false;
    for (const ZTSLocalPort& lrPort : mrPorts.mLocal) {
        if (lrPort.mHost.empty()) {
            continue;
        }
        if (mrSight.mNoTransport.empty() && sPostsNoFpins(lrPort)) {
            add("fpins", lrPort.mNames.mPort.toText(), "the driver posts none");
        } else {
            lIsSilent = true;
        }
    }
    if (lIsSilent && !mrSight.mNoTransport.empty()) {
        add("fpins", "", mrSight.mNoTransport);
    } else if (lIsSilent && mrSight.mFpins == 0) {
        add("fpins", "", "none has come yet: a driver may post none, or a fabric send none", false);
    }
}

void Spots::addPorts() {
    for (const ZTSLocalPort& lrPort : mrPorts.mLocal) {
        const std::string lName = lrPort.mNames.mPort.toText();
        if (lrPort.mHost.empty()) {
            add("counters", lName, "the kernel does not show this port");
        }
        if (lrPort.mFabric.empty()) {
            add("names", lName, "its fabric is not known, so addresses there name no ports");
        }
    }
}

void Spots::addStorage() {
    if (mrSight.mLuns != 0 && mrSight.mMaps == 0) {
        add("paths", "", "there is no multipath: each path is on its own");
    } else if (mrSight.mInferredMaps != 0 && !mrSight.mNoMultipathd.empty()) {
        add("paths", "", "how some stand is inferred: " + mrSight.mNoMultipathd, false);
    }
    if (!mrSight.mHasDiskStats) {
        add("stalls", "", "/proc/diskstats cannot be read");
    }
}

}  // namespace

std::vector<ZTSBlindSpot> listBlindSpots(const ZTSSight& acrSight, const ZTSHostPorts& acrPorts) {
    return Spots(acrSight, acrPorts).list();
}
