#include "Boards.h"

HBA_wwn toFcName(std::uint64_t aName) {
    HBA_wwn lName{};
    for (std::uint8_t& lrByte : lName.wwn) {
        lrByte = static_cast<std::uint8_t>(aName >> 56);
        aName <<= 8;
    }
    return lName;
}

void ZTCFcBoards::update(const ZTCFcWatcher& acrWatcher) {
    const ZTCFcGuard lGuard(mLock);
    auto lHosts = mHosts;
    for (auto& [lNumber, lrPlace] : lHosts) {
        lrPlace.mIsThere = false;
    }
    for (std::uint32_t lBoard = 0; lBoard < acrWatcher.countBoards(); ++lBoard) {
        if (acrWatcher.isThere(lBoard)) {
            lHosts[acrWatcher.getHost(lBoard)] = {lBoard, acrWatcher.getIdentity(lBoard)};
        }
    }
    mNames.resize(acrWatcher.countBoards());
    mHosts.swap(lHosts);
    for (std::uint32_t lBoard = 0; lBoard < mNames.size(); ++lBoard) {
        mNames[lBoard] = {toFcName(acrWatcher.getNode(lBoard)), toFcName(acrWatcher.getPort(lBoard))};
    }
}

std::uint32_t ZTCFcBoards::count() const {
    const ZTCFcGuard lGuard(mLock);
    return static_cast<std::uint32_t>(mNames.size());
}

bool ZTCFcBoards::getNames(std::uint32_t aBoard, HBA_wwn& arNode, HBA_wwn& arPort) const {
    const ZTCFcGuard lGuard(mLock);
    if (aBoard >= mNames.size()) {
        return false;
    }
    arNode = mNames[aBoard].mNode;
    arPort = mNames[aBoard].mPort;
    return true;
}

std::optional<ZTSFcPlace> ZTCFcBoards::findHost(std::uint32_t aHost) const {
    const ZTCFcGuard lGuard(mLock);
    const auto lHost = mHosts.find(aHost);
    return lHost != mHosts.end() ? std::optional(lHost->second) : std::nullopt;
}
