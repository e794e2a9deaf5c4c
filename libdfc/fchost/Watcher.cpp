#include "Watcher.h"

#include <algorithm>
#include <utility>

namespace {

constexpr std::int32_t sReordered = 256;  // messages that one may come late by
constexpr char sOnline[] = "Online";      // the port_state of a link that is up

void keep(std::uint64_t& arKnown, const std::optional<std::uint64_t>& acrNow) {
    arKnown = acrNow.value_or(arKnown);
}

}  // namespace

ZTCFcWatcher::ZTCFcWatcher(const ZTFcHosts& acrHosts, std::chrono::milliseconds aSettling)
    : mSettling(aSettling) {
    for (const auto& [lHost, lrHost] : acrHosts) {
        add(lHost, lrHost);
    }
}

// Returns the board that it has now.
std::uint32_t ZTCFcWatcher::add(std::uint32_t aHost, const ZTSFcHost& acrHost) {
    auto lBoard = std::find_if(mBoards.begin(), mBoards.end(), [&](const Board& acrBoard) {
        return !acrBoard.mIsThere && acrHost.mPort && acrBoard.mPort == *acrHost.mPort;
    });
    if (lBoard == mBoards.end()) {
        lBoard = mBoards.emplace(mBoards.end());
    }
    lBoard->mHost = aHost;
    lBoard->mIsThere = true;
    lBoard->mHasRscns = false;
    lBoard->mLast = acrHost;
    std::erase_if(lBoard->mLast.mRemotePorts, [](const auto& acrPort) { return !acrPort.second.mPortId; });
    keep(lBoard->mNode, acrHost.mNode);
    keep(lBoard->mPort, acrHost.mPort);
    return static_cast<std::uint32_t>(lBoard - mBoards.begin());
}

// A host that goes takes its remote ports with it, and its link, unless that is known to be down.
void ZTCFcWatcher::leave(std::uint32_t aBoard, ZTFcEvents& arEvents) {
    if (mBoards[aBoard].mLast.mState == sOnline) {
        arEvents.push_back({ZTSFcEvent::Link, aBoard});
    }
    compareRemotePorts(aBoard, {}, arEvents);
    mBoards[aBoard].mIsThere = false;
    mBoards[aBoard].mAnnounced.reset();
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
    if (lAhead < -sReordered) {
        mNextNumber = aNumber + 1;  // the kernel counts from the beginning again
        return;
    }
    if (lAhead < 0) {
        mCounts.mLost -= mCounts.mLost > 0 ? 1 : 0;
        return;
    }
    if (lAhead > 0) {
        mCounts.mLost += static_cast<std::uint32_t>(lAhead);
        noteLoss();
    }
    mNextNumber = aNumber + 1;
}

void ZTCFcWatcher::noteLoss() {
    mHasLost = true;
    for (Board& lrBoard : mBoards) {
        lrBoard.mAnnounced.reset();
    }
}

ZTFcEvents ZTCFcWatcher::announce(const ZTSFcMessage& acrMessage, Time aNow) {
    count(acrMessage.mNumber);
    const auto lBoard = findBoard(acrMessage.mHost);
    switch (acrMessage.mCode) {
        case ZTFCC_Lip:
        case ZTFCC_LinkUp:
        case ZTFCC_LinkDown:
        case ZTFCC_LipReset:
        case ZTFCC_PortOffline:
        case ZTFCC_PortOnline:
            if (lBoard) {
                mBoards[*lBoard].mAnnounced = aNow;
                return {{ZTSFcEvent::Link, *lBoard}};
            }
            break;
        case ZTFCC_Rscn:
            if (lBoard) {
                mBoards[*lBoard].mHasRscns = true;
                return {{ZTSFcEvent::Rscn, *lBoard, acrMessage.mData}};
            }
            break;
        case ZTFCC_AdapterChange:
            if (lBoard) {
                return {{ZTSFcEvent::AdapterArrival, *lBoard}};
            }
            break;
        default:
            ++mCounts.mWithoutKind[acrMessage.mCode];
            return {};
    }
    ++mCounts.mOfUnknownHosts;
    return {};
}

ZTFcEvents ZTCFcWatcher::look(const ZTFcHosts& acrHosts, Time aNow) {
    ZTFcEvents lEvents;
    for (std::uint32_t lBoard = 0; lBoard < mBoards.size(); ++lBoard) {
        if (!mBoards[lBoard].mIsThere) {
            continue;
        }
        const auto lHost = acrHosts.find(mBoards[lBoard].mHost);
        if (lHost != acrHosts.end() && lHost->second.mIdentity == mBoards[lBoard].mLast.mIdentity) {
            compare(lBoard, lHost->second, aNow, lEvents);
        } else {
            leave(lBoard, lEvents);
        }
    }
    // A host's attributes follow it: one without a name is given a look's time to get it.
    std::set<std::uint32_t> lNameless;
    for (const auto& [lHost, lrHost] : acrHosts) {
        if (findBoard(lHost)) {
            continue;
        }
        if (!lrHost.mPort && mNameless.count(lHost) == 0) {
            lNameless.insert(lHost);
        } else {
            const std::uint32_t lBoard = add(lHost, lrHost);
            lEvents.push_back({ZTSFcEvent::AdapterArrival, lBoard});
        }
    }
    mNameless = std::move(lNameless);
    mHasLost = false;
    return lEvents;
}

void ZTCFcWatcher::compare(std::uint32_t aBoard, const ZTSFcHost& acrNow, Time aNow, ZTFcEvents& arEvents) {
    Board& lrBoard = mBoards[aBoard];
    keep(lrBoard.mNode, acrNow.mNode);
    keep(lrBoard.mPort, acrNow.mPort);
    if (!acrNow.mState.empty() && acrNow.mState != lrBoard.mLast.mState) {
        const bool lIsAnnounced = lrBoard.mAnnounced && aNow - *lrBoard.mAnnounced <= mSettling;
        if (!lrBoard.mLast.mState.empty() && !lIsAnnounced) {
            arEvents.push_back({ZTSFcEvent::Link, aBoard});
        }
        lrBoard.mAnnounced.reset();
        lrBoard.mLast.mState = acrNow.mState;
    }
    bool lHasRisen = false;
    for (std::size_t lAt = 0; lAt < acrNow.mCounters.size(); ++lAt) {
        const auto& lrNow = acrNow.mCounters[lAt];
        auto& lrLast = lrBoard.mLast.mCounters[lAt];
        lHasRisen = lHasRisen || (lrNow && lrLast && *lrNow > *lrLast);
        lrLast = lrNow ? lrNow : lrLast;
    }
    if (lHasRisen) {
        arEvents.push_back({ZTSFcEvent::PortInterruptError, aBoard});
    }
    compareRemotePorts(aBoard, acrNow, arEvents);
}

void ZTCFcWatcher::compareRemotePorts(std::uint32_t aBoard, const ZTSFcHost& acrNow, ZTFcEvents& arEvents) {
    Board& lrBoard = mBoards[aBoard];
    auto& lrLast = lrBoard.mLast.mRemotePorts;
    const auto lTell = [&](const std::optional<std::uint32_t>& acrPortId) {
        if (acrPortId && (!lrBoard.mHasRscns || mHasLost)) {
            arEvents.push_back({ZTSFcEvent::Rscn, aBoard, *acrPortId});
        }
    };
    for (auto lPort = lrLast.begin(); lPort != lrLast.end();) {
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
        const auto [lPort, lIsNew] = lrLast.try_emplace(lrName, lrNow);
        ZTSFcRemotePort& lrKnown = lPort->second;
        const bool lHasMoved = lrNow.mPortId && lrKnown.mPortId && *lrNow.mPortId != *lrKnown.mPortId;
        const bool lIsOther =
            !lrNow.mState.empty() && !lrKnown.mState.empty() && lrNow.mState != lrKnown.mState;
        lrKnown.mPortId = lrNow.mPortId ? lrNow.mPortId : lrKnown.mPortId;
        lrKnown.mState = lrNow.mState.empty() ? lrKnown.mState : lrNow.mState;
        if (lIsNew || lHasMoved || lIsOther) {
            lTell(lrKnown.mPortId);
        }
    }
}

ZTCFcWatcher::Counts ZTCFcWatcher::takeCounts() {
    return std::exchange(mCounts, Counts());
}
