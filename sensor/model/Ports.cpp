#include "Ports.h"

#include <algorithm>

std::string_view ZTSHostPorts::fabricOf(const ZTSWwn& acrInitiator) const {
    const auto lAt = std::find_if(mLocal.begin(), mLocal.end(), [&](const ZTSLocalPort& acrPort) {
        return acrPort.mNames.mPort == acrInitiator;
    });
    return lAt != mLocal.end() ? std::string_view(lAt->mFabric) : std::string_view();
}
