#include "WebConnections.h"

#include <algorithm>

bool ZTCWebConnections::hasRoomFor(const std::string& acrPeer) const {
    const auto lOfPeer = mOfPeer.find(acrPeer);
    return mAll.size() < Most && (lOfPeer == mOfPeer.end() || lOfPeer->second < MostOfPeer);
}

ZTSWebConnection* ZTCWebConnections::add(int aSocket, const std::string& acrPeer,
                                         const ZTSWebPeriods& acrPeriods) {
    if (const ZTSWebConnection* const lpBefore = find(aSocket)) {
        remove(*lpBefore);
    }
    if (!hasRoomFor(acrPeer)) {
        return nullptr;
    }
    auto lpConnection = std::make_unique<ZTSWebConnection>();
    lpConnection->mSocket = aSocket;
    lpConnection->mPeer = acrPeer;
    lpConnection->mpPeriods = &acrPeriods;
    lpConnection->enter(ZTEWebPhase::Asking, acrPeriods.mHead);
    std::size_t& lrOfPeer = mOfPeer[acrPeer];
    ZTSWebConnection* const lpAdded = mAll.emplace(aSocket, std::move(lpConnection)).first->second.get();
    ++lrOfPeer;
    return lpAdded;
}

ZTSWebConnection* ZTCWebConnections::find(int aSocket) {
    const auto lAt = mAll.find(aSocket);
    return lAt != mAll.end() ? lAt->second.get() : nullptr;
}

void ZTCWebConnections::remove(const ZTSWebConnection& acrConnection) {
    const auto lOfPeer = mOfPeer.find(acrConnection.mPeer);
    if (lOfPeer != mOfPeer.end() && --lOfPeer->second == 0) {
        mOfPeer.erase(lOfPeer);
    }
    mAll.erase(acrConnection.mSocket);
}

std::size_t ZTCWebConnections::count(ZTEWebPhase aPhase) const {
    return static_cast<std::size_t>(std::count_if(
        mAll.begin(), mAll.end(), [&](const auto& acrOne) { return acrOne.second->mPhase == aPhase; }));
}
