#include "WebConnections.h"

bool ZTCWebConnections::hasRoomFor(const std::string& acrPeer) const {
    const auto lOfPeer = mOfPeer.find(acrPeer);
    return mAll.size() < Most && (lOfPeer == mOfPeer.end() || lOfPeer->second < MostOfPeer);
}

ZTSWebConnection* ZTCWebConnections::add(int aSocket, const std::string& acrPeer,
                                         std::chrono::milliseconds aTime) {
    if (const ZTSWebConnection* const lpBefore = find(aSocket)) {
        remove(*lpBefore);
    }
    if (!hasRoomFor(acrPeer)) {
        return nullptr;
    }
    auto lpConnection = std::make_unique<ZTSWebConnection>();
    lpConnection->mSocket = aSocket;
    lpConnection->mPeer = acrPeer;
    lpConnection->enter(ZTEWebPhase::Asking, aTime);
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

std::size_t ZTCWebConnections::countFollowers() const {
    std::size_t lFollowers = 0;
    forEach([&](const ZTSWebConnection& acrConnection) {
        lFollowers += acrConnection.mRequest.mFollower ? 1 : 0;
    });
    return lFollowers;
}
