#include "AgentTargets.h"

#include <algorithm>

void ZTCAgentTargets::see(const std::shared_ptr<const ZTSHostPorts>& acrPorts) {
    if (acrPorts == mpPorts) {
        return;
    }
    mpPorts = acrPorts;
    mLeft.clear();
    for (const ZTSRemotePort* const lpPort : mpPorts->listUniqueTargets()) {
        if (lpPort->mPortId && !mRegistered.contains({*lpPort->mPortId, lpPort->mNames})) {
            mLeft.push_back({lpPort->mNames, *lpPort->mPortId});
        }
    }
}

std::span<const ZTSSensorTarget> ZTCAgentTargets::getNext() const {
    return std::span(mLeft).first(std::min(mLeft.size(), ZTSensorMaxTargets));
}

void ZTCAgentTargets::haveRegistered(std::size_t aCount) {
    const auto lEnd = mLeft.begin() + static_cast<std::ptrdiff_t>(aCount);
    std::for_each(mLeft.begin(), lEnd, [this](const ZTSSensorTarget& acrTarget) {
        mRegistered.insert({acrTarget.mAddress, acrTarget.mNames});
    });
    mLeft.erase(mLeft.begin(), lEnd);
}
