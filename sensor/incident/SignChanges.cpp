// What has come, gone or changed, as signs.
#include <algorithm>
#include <charconv>
#include <iterator>

#include "SignReader.h"
#include "WhenText.h"

namespace {

using Sign = ZTESign;

constexpr std::size_t sMostTurns = 64;  // of vrx-sn's that are remembered

// ---- States, as the kernel says them ----

enum class Health : unsigned char { Unknown, Well, Down };

// A marginal port carries commands. One that is looped, bypassed or under test does not.
Health sHealthOf(std::string_view aState) {
    constexpr std::string_view lWell[] = {"Online", "Marginal"};
    if (aState.empty() || aState == "Unknown") {
        return Health::Unknown;
    }
    return std::ranges::find(lWell, aState) != std::end(lWell) ? Health::Well : Health::Down;
}

// What a change of state is: the loss, what comes behind it, or neither.
Sign sTurnOf(const ZTSChange& acrChange, Sign aLost, Sign aBack) {
    const Health lWas = sHealthOf(acrChange.mBefore);
    const Health lIs = sHealthOf(acrChange.mAfter);
    return lIs == lWas || lIs == Health::Unknown ? Sign::Count : lIs == Health::Down ? aLost : aBack;
}

bool sIsEvent(const ZTSChange& acrChange, std::string_view aEvent, std::string_view aAttribute = {}) {
    return acrChange.mEvent == aEvent && acrChange.mAttribute == aAttribute;
}
bool sIsState(const ZTSChange& acrChange) {
    return sIsEvent(acrChange, "changed", "state");
}

std::uint64_t sNumber(const std::string& acrText) {
    std::uint64_t lNumber = 0;
    std::from_chars(acrText.data(), acrText.data() + acrText.size(), lNumber);
    return lNumber;
}

std::string sTurnText(const ZTSChange& acrChange) {
    return acrChange.mBefore + " > " + acrChange.mAfter;
}

void sRemember(std::set<ZTNanoseconds>& arTimes, ZTNanoseconds aTime) {
    arTimes.insert(aTime);
    if (arTimes.size() > sMostTurns) {
        arTimes.erase(arTimes.begin());
    }
}

}  // namespace

void ZTCSignReader::read(const ZTSChange& acrChange, Signs& arSigns) {
    using Reader = void (ZTCSignReader::*)(const ZTSChange&, Signs&);
    constexpr std::pair<std::string_view, Reader> lReaders[] = {
        {"remote_port", &ZTCSignReader::readRemotePort},
        {"map", &ZTCSignReader::readMap},
        {"lun", &ZTCSignReader::readLun},
        {"port", &ZTCSignReader::readPort},
        {"agent", &ZTCSignReader::readAgent},
        {"sensor", &ZTCSignReader::readSensor}};
    for (const auto& [lrWhat, lpReader] : lReaders) {
        if (acrChange.mWhat == lrWhat) {
            (this->*lpReader)(acrChange, arSigns);
        }
    }
}

ZTSSign ZTCSignReader::begin(ZTESign aSign, const ZTSChange& acrChange, const ZTPortPair& acrPorts,
                             std::string aDetail) const {
    ZTSSign lSign;
    lSign.mSign = aSign;
    lSign.mFirst = lSign.mLast = acrChange.mTime;
    std::tie(lSign.mInitiator, lSign.mRemote) = acrPorts;
    lSign.mFabric = fabricOf(acrPorts.first);
    lSign.mDetail = std::move(aDetail);
    return lSign;
}

// ---- The host's ports ----

// Where the names file says which fabric it is, another text is another name.
void ZTCSignReader::readPort(const ZTSChange& acrChange, Signs& arSigns) {
    const auto lPort = ZTSWwn::fromText(acrChange.mName);
    if (!lPort) {
        return;
    }
    const auto lAdd = [&](Sign aSign, const std::string& acrDetail) {
        if (aSign != Sign::Count) {
            arSigns.push_back(begin(aSign, acrChange, {*lPort, {}}, acrDetail));
        }
    };
    if (acrChange.mEvent == "went") {
        lAdd(Sign::PortGone, acrChange.mBefore);
    } else if (acrChange.mEvent == "came") {
        lAdd(Sign::PortBack, acrChange.mAfter);
        lAdd(sHealthOf(acrChange.mAfter) == Health::Down ? Sign::LinkDown : Sign::Count, acrChange.mAfter);
    } else if (sIsState(acrChange)) {
        lAdd(sTurnOf(acrChange, Sign::LinkDown, Sign::LinkUp), acrChange.mAfter);
    } else if (acrChange.mAttribute == "fabric") {
        const bool lIsOther = ZTSWwn::fromText(acrChange.mBefore) && ZTSWwn::fromText(acrChange.mAfter);
        lAdd(lIsOther ? Sign::FabricChanged : Sign::Count, sTurnText(acrChange));
    } else if (acrChange.mAttribute == "port_id") {
        const bool lIsOther = !acrChange.mBefore.empty() && !acrChange.mAfter.empty();
        lAdd(lIsOther ? Sign::FabricChanged : Sign::Count, sTurnText(acrChange));
    }
}

// ---- Ports beyond the fabric, and LUNs ----

// Another host that is booted, or a switch's own port, is no target.
void ZTCSignReader::readRemotePort(const ZTSChange& acrChange, Signs& arSigns) {
    const ZTPortPair lPorts = readPair(acrChange.mName);
    const auto lKnown = mIsTarget.find(lPorts);
    if (lPorts == ZTPortPair() || (lKnown != mIsTarget.end() && !lKnown->second)) {
        return;
    }
    Sign lSign = Sign::Count;
    std::string lDetail = acrChange.mAfter;
    if (acrChange.mEvent == "went") {
        lSign = sHealthOf(acrChange.mBefore) == Health::Down ? Sign::Count : Sign::TargetLost;
        lDetail = "gone";
    } else if (acrChange.mEvent == "came") {
        lSign = sHealthOf(acrChange.mAfter) == Health::Down ? Sign::Count : Sign::TargetBack;
    } else if (sIsState(acrChange)) {
        lSign = sTurnOf(acrChange, Sign::TargetLost, Sign::TargetBack);
    }
    if (lSign != Sign::Count) {
        arSigns.push_back(begin(lSign, acrChange, lPorts, std::move(lDetail)));
    }
}

void ZTCSignReader::readLun(const ZTSChange& acrChange, Signs& arSigns) {
    constexpr std::string_view lWell[] = {"", "running", "created"};
    Sign lSign = Sign::Count;
    std::string lDetail = acrChange.mAfter;
    if (acrChange.mEvent == "went") {
        lSign = Sign::LunState;
        lDetail = "gone";
    } else if (sIsState(acrChange)) {
        lSign = std::ranges::find(lWell, acrChange.mAfter) == std::end(lWell) ? Sign::LunState : Sign::Count;
    } else if (acrChange.mAttribute == "access") {
        lSign = acrChange.mBefore.empty() || acrChange.mAfter.empty() ? Sign::Count : Sign::AccessChanged;
        lDetail = sTurnText(acrChange);
    } else if (acrChange.mAttribute == "queue_depth") {
        lSign = Sign::QueueDepth;
        lDetail = sTurnText(acrChange);
    }
    if (lSign != Sign::Count) {
        arSigns.push_back(begin(lSign, acrChange, readPair(acrChange.mName), std::move(lDetail)));
    }
}

// ---- Maps ----

void ZTCSignReader::readMap(const ZTSChange& acrChange, Signs& arSigns) {
    if (acrChange.mAttribute == "missing") {
        readMissing(acrChange, arSigns);
        return;
    }
    const auto lIs = readPathCount(acrChange.mAfter);
    if (acrChange.mEvent == "went" && readPathCount(acrChange.mBefore)) {
        // Nothing is missing of what is no more. It can only go when nobody uses it.
        arSigns.push_back(begin(Sign::PathBack, acrChange, {}, "gone"));
    } else if (lIs) {
        const auto lWas = readPathCount(acrChange.mBefore);
        const bool lIsMore = lWas && lIs->mLeft > lWas->mLeft;
        const bool lIsBack = lIs->mLeft >= lIs->mTotal || lIsMore;
        arSigns.push_back(begin(lIsBack ? Sign::PathBack : Sign::PathLost, acrChange));
        arSigns.back().mLeft = lIs->mLeft;
        arSigns.back().mTotal = lIs->mTotal;
    } else {
        return;
    }
    arSigns.back().mDisk = acrChange.mName;
}

// Where not all that are missing have a name, one that is not named any more may be missing all the same.
void ZTCSignReader::readMissing(const ZTSChange& acrChange, Signs& arSigns) const {
    const ZTSMissingPaths lWas = readMissingPaths(acrChange.mBefore);
    const ZTSMissingPaths lIs = readMissingPaths(acrChange.mAfter);
    const auto lAdd = [&](Sign aSign, const std::set<ZTPortPair>& acrThose,
                          const std::set<ZTPortPair>& acrNotThese) {
        for (const ZTPortPair& lrPair : acrThose) {
            if (!acrNotThese.contains(lrPair)) {
                arSigns.push_back(begin(aSign, acrChange, lrPair));
                arSigns.back().mDisk = acrChange.mName;
            }
        }
    };
    lAdd(Sign::PathLost, lIs.mPairs, lWas.mPairs);
    if (lIs.mIsAll) {
        lAdd(Sign::PathBack, lWas.mPairs, lIs.mPairs);
    }
}

// ---- Those who collect ----

void ZTCSignReader::readAgent(const ZTSChange& acrChange, Signs& arSigns) {
    if (acrChange.mEvent == "went") {
        arSigns.push_back(begin(Sign::AgentGone, acrChange, {}, acrChange.mAfter));
    } else if (acrChange.mEvent == "came") {
        arSigns.push_back(begin(Sign::AgentBack, acrChange));
    }
}

// vrx-sn says when it ended and when it came, and what it had no room for.
void ZTCSignReader::readSensor(const ZTSChange& acrChange, Signs& arSigns) {
    const ZTNanoseconds lTime = acrChange.mTime;
    if (acrChange.mEvent == "went" && acrChange.mAfter == "ended") {
        sRemember(mEnded, lTime);
        const auto lCame = mCame.upper_bound(lTime);
        const auto lNext = mEnded.upper_bound(lTime);
        if (lCame != mCame.end() && (lNext == mEnded.end() || *lNext >= *lCame)) {
            addGap(lTime, *lCame, acrChange, arSigns);
        }
    } else if (acrChange.mEvent == "went") {
        // It was killed: the next one says so, with when the history was last written.
        const ZTNanoseconds lSeen = readWhen(acrChange.mBefore, lTime, zoneOfUtc).value_or(lTime);
        addGap(std::min(lSeen, lTime), lTime, acrChange, arSigns);
    } else if (acrChange.mEvent == "came") {
        sRemember(mCame, lTime);
        const auto lBehind = mEnded.lower_bound(lTime);
        const auto lCame = lBehind != mEnded.begin() ? mCame.upper_bound(*std::prev(lBehind)) : mCame.end();
        if (lCame != mCame.end() && *lCame == lTime) {
            addGap(*std::prev(lBehind), lTime, acrChange, arSigns);
        }
    } else if (acrChange.mAttribute.starts_with("lost_")) {
        arSigns.push_back(begin(Sign::Lost, acrChange, {}, acrChange.mAttribute));
        arSigns.back().mEvents = std::max<std::uint64_t>(sNumber(acrChange.mAfter), 1);
    }
}

void ZTCSignReader::addGap(ZTNanoseconds aFirst, ZTNanoseconds aLast, const ZTSChange& acrChange,
                           Signs& arSigns) const {
    arSigns.push_back(
        begin(Sign::SensorGone, acrChange, {}, acrChange.mEvent == "went" ? acrChange.mAfter : "ended"));
    arSigns.back().mFirst = aFirst;
    arSigns.back().mLast = aLast;
}
