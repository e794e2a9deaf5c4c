#include "Ports.h"

#include <algorithm>

std::string_view ZTSHostPorts::fabricOf(const ZTSWwn& acrInitiator) const {
    const auto lAt = std::find_if(mLocal.begin(), mLocal.end(), [&](const ZTSLocalPort& acrPort) {
        return acrPort.mNames.mPort == acrInitiator;
    });
    return lAt != mLocal.end() ? std::string_view(lAt->mFabric) : std::string_view();
}

const ZTSRemotePort* ZTSHostPorts::findAt(std::string_view aFabric, std::uint32_t aAddress) const {
    const ZTSRemotePort* lpFound = nullptr;
    for (const ZTSRemotePort& lrPort : mRemote) {
        if (aFabric.empty() || lrPort.mFabric != aFabric || lrPort.mPortId != aAddress) {
            continue;
        }
        if (lpFound != nullptr && lpFound->mNames != lrPort.mNames) {
            return nullptr;
        }
        lpFound = &lrPort;  // more than one port of the host may see it
    }
    return lpFound;
}

std::vector<const ZTSRemotePort*> ZTSHostPorts::listUniqueTargets() const {
    struct User {
        std::uint32_t mAddress;
        ZTSPortNames mNames;
        const ZTSRemotePort* mpTarget;  // null: it is none
    };
    std::vector<User> lUsers;
    for (const ZTSLocalPort& lrPort : mLocal) {
        if (lrPort.mPortId) {
            lUsers.push_back({*lrPort.mPortId, lrPort.mNames, nullptr});
        }
    }
    for (const ZTSRemotePort& lrPort : mRemote) {
        if (lrPort.mPortId) {
            const bool lIsTarget = lrPort.mRoles.find("FCP Target") != std::string::npos;
            lUsers.push_back({*lrPort.mPortId, lrPort.mNames, lIsTarget ? &lrPort : nullptr});
        }
    }
    std::sort(lUsers.begin(), lUsers.end(),
              [](const User& acrOne, const User& acrOther) { return acrOne.mAddress < acrOther.mAddress; });
    std::vector<const ZTSRemotePort*> lTargets;
    for (auto lFirst = lUsers.begin(); lFirst != lUsers.end();) {
        const auto lEnd = std::find_if(
            lFirst, lUsers.end(), [&](const User& acrUser) { return acrUser.mAddress != lFirst->mAddress; });
        const bool lIsOne =
            std::all_of(lFirst, lEnd, [&](const User& acrUser) { return acrUser.mNames == lFirst->mNames; });
        const auto lTarget =
            std::find_if(lFirst, lEnd, [](const User& acrUser) { return acrUser.mpTarget != nullptr; });
        if (lIsOne && lTarget != lEnd) {
            lTargets.push_back(lTarget->mpTarget);
        }
        lFirst = lEnd;
    }
    return lTargets;
}
