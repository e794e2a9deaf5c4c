#include "PortBook.h"

#include <algorithm>
#include <iterator>
#include <utility>

void ZTCPortBook::seeHost(ZTSHostPorts aPorts, ZTNanoseconds aTime) {
    const bool lTells = hasLooked();
    noteHost(aPorts);
    if (!lTells) {
        mFirstHost = aPorts;
        mFirstTime = aTime;
    }
    mHost = std::move(aPorts);
    note(lTells, aTime);
}

void ZTCPortBook::seeAgent(Names aPorts, ZTNanoseconds aTime) {
    const bool lIsFirst = !mIsCompared && !mFirstAgent;
    if (!lIsFirst && aPorts == mAgent) {
        return;
    }
    if (lIsFirst) {
        mFirstAgent = aPorts;
    }
    mAgent = std::move(aPorts);
    note(hasLooked() && !lIsFirst, aTime);
}

void ZTCPortBook::setLabels(ZTPortLabels aLabels, ZTNanoseconds aTime) {
    mLabels = std::move(aLabels);
    note(hasLooked(), aTime);
}

void ZTCPortBook::setStart(std::optional<ZTSHostPorts> aPorts) {
    Names lAgent;
    for (const ZTSLocalPort& lrPort : aPorts ? aPorts->mLocal : std::vector<ZTSLocalPort>()) {
        if (lrPort.mHost.empty()) {
            lAgent.push_back(lrPort.mNames);
        } else {
            mOfHost.insert(lrPort.mNames.mPort);
        }
    }
    if (!mFirstAgent) {
        mAgent = std::move(lAgent);  // until an answer says otherwise
    }
    mStart = std::move(aPorts);
    mIsStartKnown = true;
    note(false, mTime);
}

void ZTCPortBook::noteHost(const ZTSHostPorts& acrPorts) {
    for (const ZTSLocalPort& lrPort : acrPorts.mLocal) {
        mOfHost.insert(lrPort.mNames.mPort);
    }
}

void ZTCPortBook::note(bool aTells, ZTNanoseconds aTime) {
    mIsDue = true;
    mTells = aTells;
    mTime = aTime;
    settle();
}

// What may throw comes first.
void ZTCPortBook::settle() {
    if (!mIsDue) {
        return;
    }
    compareWithStart();
    auto lpPorts = std::make_shared<const ZTSHostPorts>(join(mHost, mAgent));
    if (mTells) {
        add(listPortChanges(*mpPorts, *lpPorts, mTime));
    }
    mpPorts = std::move(lpPorts);
    mHaveNews = true;
    mIsDue = false;
}

// Told with the time of the look, whenever the store was opened.
void ZTCPortBook::compareWithStart() {
    if (mIsCompared || !mIsStartKnown || !hasLooked()) {
        return;
    }
    const ZTSHostPorts lBefore = mStart ? *mStart : join(mFirstHost, {});
    add(listPortChanges(lBefore, join(mFirstHost, mFirstAgent.value_or(mAgent)), mFirstTime));
    mIsCompared = true;
    mStart.reset();
    mFirstHost = {};
    mFirstAgent.reset();
}

void ZTCPortBook::add(std::vector<ZTSChange> aChanges) {
    mChanges.reserve(mChanges.size() + aChanges.size());
    std::move(aChanges.begin(), aChanges.end(), std::back_inserter(mChanges));
}

ZTSHostPorts ZTCPortBook::join(const ZTSHostPorts& acrHost, const Names& acrAgent) const {
    ZTSHostPorts lPorts = acrHost;
    for (const ZTSPortNames& lrNames : acrAgent) {
        if (!mOfHost.contains(lrNames.mPort)) {
            lPorts.mLocal.emplace_back().mNames = lrNames;
        }
    }
    for (ZTSLocalPort& lrPort : lPorts.mLocal) {
        const auto lLabel = mLabels ? mLabels->find(lrPort.mNames.mPort) : ZTPortLabels::const_iterator();
        if (mLabels && lLabel != mLabels->end() && !lLabel->second.mFabric.empty()) {
            lrPort.mFabric = lLabel->second.mFabric;
        }
    }
    for (ZTSRemotePort& lrPort : lPorts.mRemote) {
        lrPort.mFabric = lPorts.fabricOf(lrPort.mInitiator);
    }
    return lPorts;
}
