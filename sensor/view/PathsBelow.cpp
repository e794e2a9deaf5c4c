#include "PathsBelow.h"

#include <algorithm>
#include <iterator>
#include <set>

#include "PortText.h"

ZTSSeries portsOfPath(const ZTSLun& acrLun) {
    ZTSSeries lPath;
    lPath.mInitiator.mPort = acrLun.mInitiator;
    lPath.mRemote = acrLun.mTarget;
    lPath.mFabric = acrLun.mFabric;
    return lPath;
}

// "3" and digits is "naa.", "2" is "eui.".
std::string lunWwidOf(const std::string& acrMapWwid) {
    const char lType = acrMapWwid.empty() ? ' ' : acrMapWwid[0];
    return lType == '3' ? "naa." + acrMapWwid.substr(1) : lType == '2' ? "eui." + acrMapWwid.substr(1) : "";
}

ZTCPathsBelow::Known::Known(ZTSStoredStorage aStorage)
    : mStored(std::move(aStorage)), mHere(mStored.listHere()) {
    const auto lAdd = [this](const std::string& acrName, const std::string& acrDisk) {
        mDisks.emplace(acrName, acrDisk);
    };
    for (const ZTSLun& lrLun : mHere.mLuns) {
        lAdd(lrLun.getName(), lrLun.mDisk);
        lAdd(lrLun.mDisk, lrLun.mDisk);
    }
    for (const ZTSMap& lrMap : mHere.mMaps) {
        lAdd(lrMap.mName, lrMap.mDisk);
        lAdd(lrMap.mDisk, lrMap.mDisk);
    }
    for (const ZTSVolume& lrVolume : mHere.mVolumes) {
        lAdd(lrVolume.mName, lrVolume.mDisk);
        lAdd(lrVolume.mDisk, lrVolume.mDisk);
    }
    for (const ZTSMount& lrMount : mHere.mMounts) {
        lAdd(lrMount.mPoint, lrMount.mDisk);
    }
    std::unordered_multimap<std::string, const ZTSLun*> lLuns;
    for (const ZTSStoredLun& lrLun : mStored.mLuns) {
        lLuns.emplace(lrLun.mLun.mWwid, &lrLun.mLun);
        if (!lrLun.mIsHere) {
            mGone.emplace(lrLun.mLun.getName(), &lrLun.mLun);
        }
    }
    for (const ZTSStoredMap& lrMap : mStored.mMaps) {
        const std::string lWwid = lrMap.mIsHere ? "" : lunWwidOf(lrMap.mMap.mWwid);
        const auto [lBegin, lEnd] = lLuns.equal_range(lWwid);
        for (auto lAt = lBegin; !lWwid.empty() && lAt != lEnd; ++lAt) {
            mGone.emplace(lrMap.mMap.mName, lAt->second);
        }
    }
}

void ZTCPathsBelow::read(ZTCStoreReader& arReader) {
    auto lpKnown = std::make_unique<const Known>(arReader.readStorage());
    std::map<ZTSWwn, std::string> lFabrics;
    // A port without a link has none just now, but others know in which one it was.
    const auto lAdd = [&](const ZTSWwn& acrPort, const std::string& acrFabric) {
        acrFabric.empty() ? void() : void(lFabrics.emplace(acrPort, acrFabric));
    };
    for (const ZTSStoredPort& lrPort : arReader.readPorts()) {
        lAdd(lrPort.mPort.mNames.mPort, lrPort.mPort.mFabric);
    }
    for (const ZTSStoredRemotePort& lrPort : arReader.readRemotePorts()) {
        lAdd(lrPort.mPort.mInitiator, lrPort.mPort.mFabric);
        lAdd(lrPort.mPort.mNames.mPort, lrPort.mPort.mFabric);
    }
    for (const ZTSStoredLun& lrLun : lpKnown->mStored.mLuns) {
        lAdd(lrLun.mLun.mInitiator, lrLun.mLun.mFabric);
    }
    mLabels = arReader.readLabels();
    mpKnown = std::move(lpKnown);
    mFabrics = std::move(lFabrics);
}

// From disk to disk, down to the LUNs. A circle ends it.
void ZTCPathsBelow::addBelow(const std::string& acrName, std::vector<ZTSSeries>& arPaths) const {
    std::vector<std::string_view> lDisks;
    const auto [lBegin, lEnd] = mpKnown->mDisks.equal_range(acrName);
    for (auto lAt = lBegin; lAt != lEnd; ++lAt) {
        lDisks.push_back(lAt->second);
    }
    std::set<std::string_view> lSeen;
    while (!lDisks.empty()) {
        const std::string_view lDisk = lDisks.back();
        lDisks.pop_back();
        if (!lSeen.insert(lDisk).second) {
            continue;
        }
        if (const ZTSVolume* const lpVolume = mpKnown->mIndex.findVolume(lDisk)) {
            lDisks.insert(lDisks.end(), lpVolume->mOver.begin(), lpVolume->mOver.end());
        }
        const ZTSMap* const lpMap = mpKnown->mIndex.findMap(lDisk);
        if (lpMap != nullptr && lpMap->mDisk == lDisk) {
            for (const ZTSPath& lrPath : lpMap->mPaths) {
                lDisks.push_back(lrPath.mDisk);
            }
        }
        if (const ZTSLun* const lpLun = mpKnown->mIndex.findDisk(lDisk)) {
            arPaths.push_back(portsOfPath(*lpLun));
        }
    }
}

ZTSSeries ZTCPathsBelow::pairOf(const ZTSWwn& acrInitiator, const std::optional<ZTSWwn>& acrTarget) const {
    ZTSSeries lPair;
    lPair.mInitiator.mPort = acrInitiator;
    lPair.mRemote = acrTarget;
    const auto lFabric = mFabrics.find(acrInitiator);
    lPair.mFabric = lFabric != mFabrics.end() ? lFabric->second : "";
    return lPair;
}

// "TARGET LUN 0 seen from INITIATOR", "TARGET seen from INITIATOR"; one alone is an initiator.
std::vector<ZTSSeries> ZTCPathsBelow::listNamed(const std::string& acrName) const {
    const std::vector<ZTSWwn> lPorts = listPortsIn(acrName);
    if (lPorts.empty()) {
        return {};
    }
    return {pairOf(lPorts.back(), lPorts.size() > 1 ? std::optional(lPorts.front()) : std::nullopt)};
}

std::vector<ZTSSeries> ZTCPathsBelow::listPaths(const std::string& acrName) const {
    std::vector<ZTSSeries> lPaths;
    if (mpKnown) {
        addBelow(acrName, lPaths);
        const auto [lBegin, lEnd] = mpKnown->mGone.equal_range(acrName);
        std::transform(lBegin, lPaths.empty() ? lEnd : lBegin, std::back_inserter(lPaths),
                       [](const auto& acrEntry) { return portsOfPath(*acrEntry.second); });
    }
    return lPaths.empty() ? listNamed(acrName) : lPaths;
}

std::vector<ZTSSeries> ZTCPathsBelow::listPaths(const ZTSChange& acrChange) const {
    if (acrChange.mWhat != "note") {
        return listPaths(acrChange.mName);
    }
    std::vector<ZTSSeries> lPaths;
    for (const ZTSWwn& lrPort : findPorts(mLabels, acrChange.mAttribute)) {
        lPaths.push_back(pairOf(lrPort, lrPort));  // whichever of them it is
    }
    return lPaths.empty() ? listPaths(acrChange.mAttribute) : lPaths;
}
