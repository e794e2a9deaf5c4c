#include "Watcher.h"

#include <algorithm>
#include <utility>

namespace {

constexpr std::int32_t sReordered = 256;  // messages that one may come late by
constexpr char sOnline[] = "Online";      // the port_state of a link that is up

void sKeep(std::uint64_t& arKnown, const std::optional<std::uint64_t>& acrNow) {
    arKnown = acrNow.value_or(arKnown);
}

std::optional<std::uint64_t> sPortOf(const ZTSFcHost& acrHost) {
    return acrHost.mPort ? acrHost.mPort : acrHost.mPermanentPort;
}

// For one event more: adding it then cannot fail, and what it tells of may be taken as seen.
void sMakeRoom(ZTFcEvents& arEvents) {
    if (arEvents.size() == arEvents.capacity()) {
        arEvents.reserve(2 * arEvents.size() + 1);
    }
}

// What a message is about, if there is a kind for it. An RSCN that names no page has none.
std::optional<ZTEFcEventKind> sKindOf(const ZTSFcMessage& acrMessage) {
    switch (acrMessage.mCode) {
        case ZTFCC_Lip:
        case ZTFCC_LinkUp:
        case ZTFCC_LinkDown:
        case ZTFCC_LipReset:
        case ZTFCC_PortOffline:
        case ZTFCC_PortOnline:
            return ZTFEK_Link;
        case ZTFCC_Rscn:
            return acrMessage.getWord() ? std::optional(ZTFEK_Rscn) : std::nullopt;
        case ZTFCC_AdapterChange:
            return ZTFEK_AdapterArrival;
        default:
            return {};
    }
}

}  // namespace

ZTCFcWatcher::ZTCFcWatcher(const ZTFcHosts& acrHosts, std::chrono::milliseconds aSettling)
    : mSettling(aSettling) {
    for (const auto& [lHost, lrHost] : acrHosts) {
        add(lHost, lrHost);
    }
}

// Returns the board that it has now.
ZTCFcWatcher::Board& ZTCFcWatcher::add(std::uint32_t aHost, const ZTSFcHost& acrHost) {
    const auto lPort = sPortOf(acrHost);
    ZTSFcHost lNow = acrHost;
    std::erase_if(lNow.mRemotePorts, [](const auto& acrPort) { return !acrPort.second.mPortId; });
    auto lBoard = std::find_if(mBoards.begin(), mBoards.end(), [&](const Board& acrBoard) {
        return !acrBoard.mIsThere && lPort && acrBoard.mPort == *lPort;
    });
    if (lBoard == mBoards.end()) {
        lBoard = mBoards.emplace(mBoards.end());
    }
    lBoard->mHost = aHost;
    lBoard->mIsThere = true;
    lBoard->mHasRscns = false;
    sKeep(lBoard->mNode, lNow.mNode);
    sKeep(lBoard->mPort, lPort);
    lBoard->mLast = std::move(lNow);
    return *lBoard;
}

// A host that goes takes its remote ports with it, and its link, unless that is known to be down.
void ZTCFcWatcher::leave(std::uint32_t aBoard, Time aNow, ZTFcEvents& arEvents) {
    if (mBoards[aBoard].mLast.mState == sOnline) {
        follow(aBoard, {}, aNow, arEvents);
    }
    compareRemotePorts(aBoard, {}, arEvents);
    mBoards[aBoard].mIsThere = false;
    mBoards[aBoard].mAnnounced.reset();
}

bool ZTCFcWatcher::isRecent(const std::optional<Time>& acrThen, Time aNow) const {
    return acrThen && aNow - *acrThen <= mSettling;
}

// The state of a board's port is another one, or none as the host has gone: that is told unless it was
// announced.
void ZTCFcWatcher::follow(std::uint32_t aBoard, const std::string& acrState, Time aNow,
                          ZTFcEvents& arEvents) {
    Board& lrBoard = mBoards[aBoard];
    std::string lState = acrState;
    sMakeRoom(arEvents);
    const bool lIsAnnounced =
        !mHasLost && isRecent(lrBoard.mAnnounced, aNow) && (!acrState.empty() || lrBoard.mIsAnnouncedDown);
    if (!lrBoard.mLast.mState.empty() && !lIsAnnounced) {
        arEvents.push_back({ZTFEK_Link, aBoard});
    }
    lrBoard.mAnnounced.reset();
    lrBoard.mLast.mState = std::move(lState);
}

std::optional<std::uint32_t> ZTCFcWatcher::findBoard(std::uint32_t aHost) const {
    const auto lBoard = std::find_if(mBoards.begin(), mBoards.end(), [=](const Board& acrBoard) {
        return acrBoard.mHost == aHost && acrBoard.mIsThere;
    });
    return lBoard != mBoards.end() ? std::optional(static_cast<std::uint32_t>(lBoard - mBoards.begin()))
                                   : std::nullopt;
}

// Two messages may pass each other on their way: one that comes late has not been lost.
void ZTCFcWatcher::count(std::uint32_t aNumber) {
    const auto lAhead = static_cast<std::int32_t>(aNumber - mNextNumber.value_or(aNumber));
    if (lAhead < 0 && lAhead >= -sReordered) {
        ++mCounts.mLate;
        return;
    }
    if (lAhead > 0) {
        mCounts.mLost += static_cast<std::uint32_t>(lAhead);
        noteLoss();
    }
    mNextNumber = aNumber + 1;  // also when the kernel counts from the beginning again
}

void ZTCFcWatcher::announce(const ZTSFcMessage& acrMessage, Time aNow, ZTFcEvents& arEvents) {
    const auto lKind = sKindOf(acrMessage);
    if (!lKind) {
        std::uint64_t& lrCount = mCounts.mWithoutKind[acrMessage.mCode];
        count(acrMessage.mNumber);
        ++lrCount;
        return;
    }
    sMakeRoom(arEvents);
    count(acrMessage.mNumber);
    const auto lBoard = findBoard(acrMessage.mHost);
    if (!lBoard) {
        ++mCounts.mOfUnknownHosts;
        return;
    }
    Board& lrBoard = mBoards[*lBoard];
    if (*lKind == ZTFEK_AdapterArrival && isRecent(std::exchange(lrBoard.mArrived, {}), aNow)) {
        return;  // what a driver says of its host that has just come is told already
    }
    if (*lKind == ZTFEK_Link) {
        lrBoard.mAnnounced = aNow;
        lrBoard.mIsAnnouncedDown =
            acrMessage.mCode == ZTFCC_LinkDown || acrMessage.mCode == ZTFCC_PortOffline;
    }
    lrBoard.mHasRscns = lrBoard.mHasRscns || *lKind == ZTFEK_Rscn;
    arEvents.push_back({*lKind, *lBoard, *lKind == ZTFEK_Rscn ? *acrMessage.getWord() : 0});
}

void ZTCFcWatcher::look(const ZTFcHosts& acrHosts, Time aNow, ZTFcEvents& arEvents) {
    std::vector<std::uint32_t> lStayed;
    lStayed.reserve(mBoards.size());
    for (std::uint32_t lBoard = 0; lBoard < mBoards.size(); ++lBoard) {
        if (!mBoards[lBoard].mIsThere) {
            continue;
        }
        const auto lHost = acrHosts.find(mBoards[lBoard].mHost);
        if (lHost != acrHosts.end() && lHost->second.mIdentity == mBoards[lBoard].mLast.mIdentity) {
            compare(lBoard, lHost->second, aNow, arEvents);
            lStayed.push_back(lHost->first);
        } else {
            leave(lBoard, aNow, arEvents);
        }
    }
    std::sort(lStayed.begin(), lStayed.end());
    // A host's attributes follow it: one without a name is given a look's time to get it.
    std::set<std::uint32_t> lNameless;
    for (const auto& [lHost, lrHost] : acrHosts) {
        if (std::binary_search(lStayed.begin(), lStayed.end(), lHost)) {
            continue;
        }
        if (!sPortOf(lrHost) && mNameless.count(lHost) == 0) {
            lNameless.insert(lHost);
        } else {
            sMakeRoom(arEvents);
            Board& lrBoard = add(lHost, lrHost);
            lrBoard.mArrived = aNow;
            arEvents.push_back({ZTFEK_AdapterArrival, static_cast<std::uint32_t>(&lrBoard - mBoards.data())});
        }
    }
    mNameless = std::move(lNameless);
    if (acrHosts.empty()) {
        mNextNumber.reset();  // the transport may have been unloaded: a new one counts from the beginning
    }
    mHasLost = false;
}

void ZTCFcWatcher::compare(std::uint32_t aBoard, const ZTSFcHost& acrNow, Time aNow, ZTFcEvents& arEvents) {
    Board& lrBoard = mBoards[aBoard];
    sKeep(lrBoard.mNode, acrNow.mNode);
    sKeep(lrBoard.mPort, lrBoard.mPort != 0 ? acrNow.mPort : sPortOf(acrNow));
    if (!acrNow.mState.empty() && acrNow.mState != lrBoard.mLast.mState) {
        follow(aBoard, acrNow.mState, aNow, arEvents);
    }
    sMakeRoom(arEvents);
    bool lHasRisen = false;
    for (std::size_t lAt = 0; lAt < acrNow.mCounters.size(); ++lAt) {
        const auto& lrNow = acrNow.mCounters[lAt];
        auto& lrLast = lrBoard.mLast.mCounters[lAt];
        lHasRisen = lHasRisen || (lrNow && lrLast && *lrNow > *lrLast);
        lrLast = lrNow ? lrNow : lrLast;
    }
    if (lHasRisen) {
        arEvents.push_back({ZTFEK_PortInterruptError, aBoard});
    }
    compareRemotePorts(aBoard, acrNow, arEvents);
}

void ZTCFcWatcher::compareRemotePorts(std::uint32_t aBoard, const ZTSFcHost& acrNow, ZTFcEvents& arEvents) {
    Board& lrBoard = mBoards[aBoard];
    auto& lrLast = lrBoard.mLast.mRemotePorts;
    const auto lTell = [&](const std::optional<std::uint32_t>& acrPortId) {
        if (acrPortId && (!lrBoard.mHasRscns || mHasLost)) {
            arEvents.push_back({ZTFEK_Rscn, aBoard, *acrPortId});
        }
    };
    for (auto lPort = lrLast.begin(); lPort != lrLast.end();) {
        sMakeRoom(arEvents);
        const bool lHasGone = acrNow.mRemotePorts.count(lPort->first) == 0;
        if (lHasGone) {
            lTell(lPort->second.mPortId);
        }
        lPort = lHasGone ? lrLast.erase(lPort) : std::next(lPort);
    }
    for (const auto& [lrName, lrNow] : acrNow.mRemotePorts) {
        if (!lrNow.mPortId && lrLast.count(lrName) == 0) {
            continue;  // its attributes follow it: it has come when it has an address
        }
        sMakeRoom(arEvents);
        std::string lState = lrNow.mState;
        const auto [lPort, lIsNew] = lrLast.try_emplace(lrName, lrNow);
        ZTSFcRemotePort& lrKnown = lPort->second;
        const bool lHasMoved = lrNow.mPortId && lrKnown.mPortId && *lrNow.mPortId != *lrKnown.mPortId;
        const bool lIsOther =
            !lrNow.mState.empty() && !lrKnown.mState.empty() && lrNow.mState != lrKnown.mState;
        lrKnown.mPortId = lrNow.mPortId ? lrNow.mPortId : lrKnown.mPortId;
        if (!lState.empty()) {
            lrKnown.mState = std::move(lState);
        }
        if (lIsNew || lHasMoved || lIsOther) {
            lTell(lrKnown.mPortId);
        }
    }
}

ZTCFcWatcher::Counts ZTCFcWatcher::takeCounts() {
    const std::uint64_t lFound = std::min(mCounts.mLate, mCounts.mLost);
    mCounts.mLate -= lFound;
    mCounts.mLost -= lFound;
    return std::exchange(mCounts, Counts());
}
