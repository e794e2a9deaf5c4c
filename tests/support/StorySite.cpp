#include "StorySite.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <stdexcept>

namespace {

[[noreturn]] void sFail(const std::string& acrText) {
    throw std::runtime_error(acrText);
}

std::string sWord(std::string_view& arText) {
    std::string lWord;
    bool lIsQuoted = false;
    while (!arText.empty() && (lIsQuoted || (arText[0] != ' ' && arText[0] != '#'))) {
        lIsQuoted ^= arText[0] == '"';
        lWord += arText[0] == '"' ? "" : std::string(1, arText[0]);
        arText.remove_prefix(1);
    }
    return lIsQuoted ? (sFail("a quote is open"), lWord) : lWord;
}

bool sIsOneOf(const std::vector<std::string>& acrNames, const ZTCStorySite::Port& acrPort) {
    return std::ranges::any_of(acrNames, [&](const std::string& acrName) {
        return acrName == "*" || acrName == acrPort.mName ||
               (!acrPort.mArray.empty() &&
                (acrName == acrPort.mArray || acrName == acrPort.mArray + "/" + acrPort.mController));
    });
}

std::vector<const ZTCStorySite::Port*> sFind(const std::deque<ZTCStorySite::Port>& acrPorts,
                                             const std::vector<std::string>& acrNames) {
    std::vector<const ZTCStorySite::Port*> lPorts;
    for (const ZTCStorySite::Port& lrPort : acrPorts) {
        if (sIsOneOf(acrNames, lrPort)) {
            lPorts.push_back(&lrPort);
        }
    }
    for (const std::string& lrName : acrNames) {
        if (std::ranges::none_of(acrPorts,
                                 [&](const auto& acrPort) { return sIsOneOf({lrName}, acrPort); })) {
            sFail("there is no port " + lrName);
        }
    }
    return lPorts;
}

}  // namespace

std::uint64_t ZTSStoryLine::getTimes() const {
    const auto lAt = std::ranges::find_if(mWords, [](const std::string& acrWord) {
        return acrWord.size() > 1 && acrWord[0] == 'x' && isdigit(acrWord[1]) != 0;
    });
    return lAt != mWords.end() ? std::stoull(lAt->substr(1)) : 1;
}

ZTNanoseconds ZTSStoryLine::getLength() const {
    return ZTCStorySite::readLength(get("for"));
}

// ---- Lines ----

ZTSStoryLine::ZTSStoryLine(std::string_view aText) {
    while (true) {
        aText.remove_prefix(std::min(aText.size(), aText.find_first_not_of(' ')));
        if (aText.empty() || aText[0] == '#') {
            return;
        }
        const bool lIsText = aText[0] == '"';
        const std::string lWord = sWord(aText);
        const std::size_t lAt = lIsText ? std::string::npos : lWord.find('=');
        if (lAt == std::string::npos || lAt == 0 || lWord.starts_with("queue_full=")) {
            mWords.push_back(lWord);
        } else {
            mValues[lWord.substr(0, lAt)] = lWord.substr(lAt + 1);
        }
    }
}

const std::string& ZTSStoryLine::at(std::size_t aWord) const {
    return aWord < mWords.size() ? mWords[aWord] : (sFail("words are missing"), mWords[0]);
}

std::string ZTSStoryLine::get(const std::string& acrName, const std::string& acrElse) const {
    const auto lAt = mValues.find(acrName);
    return lAt != mValues.end() ? lAt->second : acrElse;
}

std::vector<std::string> ZTSStoryLine::list(const std::string& acrName) const {
    std::vector<std::string> lList;
    for (std::string_view lText = mValues.contains(acrName) ? mValues.at(acrName) : std::string_view();
         !lText.empty();) {
        lList.emplace_back(lText.substr(0, lText.find(',')));
        lText.remove_prefix(std::min(lText.size(), lList.back().size() + 1));
    }
    return lList;
}

ZTNanoseconds ZTCStorySite::readLength(std::string_view aText) {
    constexpr std::pair<std::string_view, ZTNanoseconds> lUnits[] = {
        {"ms", ZTSecond / 1000}, {"s", ZTSecond},         {"m", 60 * ZTSecond},
        {"h", 3600 * ZTSecond},  {"d", 86400 * ZTSecond}, {"", 0}};
    const std::string lText(aText);
    ZTNanoseconds lLength = 0;
    aText.remove_prefix(aText.starts_with('+') ? 1 : 0);
    while (!aText.empty()) {
        ZTNanoseconds lNumber = 0;
        const auto lParsed = std::from_chars(aText.begin(), aText.end(), lNumber);
        aText.remove_prefix(static_cast<std::size_t>(lParsed.ptr - aText.begin()));
        const auto* const lpUnit = std::ranges::find_if(
            lUnits, [&](const auto& acrUnit) { return aText.starts_with(acrUnit.first); });
        if (lParsed.ec != std::errc() || lpUnit->second == 0) {
            sFail(lText + " is no length of time");
        }
        lLength += lNumber * lpUnit->second;
        aText.remove_prefix(lpUnit->first.size());
    }
    return lLength;
}

// ---- What there is ----

bool ZTCStorySite::take(const ZTSStoryLine& acrLine) {
    const std::string& lrVerb = acrLine.at(0);
    if (lrVerb == "fabric") {
        mFabrics[acrLine.at(1)] = acrLine.get("wwn");
    } else if (lrVerb == "host" || lrVerb == "target") {
        addPort(lrVerb == "host" ? mHosts : mTargets, acrLine, lrVerb == "host");
    } else if (lrVerb == "map") {
        mMaps.push_back({acrLine.at(1), acrLine.get("array"), acrLine.get("volume"), acrLine.get("mount")});
    } else if (lrVerb == "unnamed") {
        mIsNamed = false;
    } else {
        return false;
    }
    return true;
}

void ZTCStorySite::end() {
    if (mHosts.empty() && mTargets.empty() && mMaps.empty()) {
        for (std::string_view lText = std::data(ZTUsualSite); !lText.empty();) {
            take(ZTSStoryLine(lText.substr(0, lText.find('\n'))));
            lText.remove_prefix(lText.find('\n') + 1);
        }
    }
}

void ZTCStorySite::addPort(std::deque<Port>& arPorts, const ZTSStoryLine& acrLine, bool aIsHost) {
    Port lPort{acrLine.at(1),        acrLine.get("fabric", "A"), {},
               acrLine.get("array"), acrLine.get("controller"),  acrLine.get("zone")};
    const auto lNumber = static_cast<std::uint8_t>(arPorts.size());
    lPort.mWwn = aIsHost ? ZTSWwn{{0x10, 0, 0, 0x10, 0x9b, 0, 0, lNumber}}
                         : ZTSWwn{{0x50, 6, 1, 0x60, 0x3b, 0x20, 0x11, lNumber}};
    if (!acrLine.get("wwpn").empty()) {
        lPort.mWwn = findWwn(acrLine.get("wwpn"));
    }
    // The same addresses in each fabric.
    const auto lOnFabric = std::ranges::count(arPorts, lPort.mFabric, &Port::mFabric);
    lPort.mId = (aIsHost ? 0x010100U : 0x010a00U) + 0x100U * static_cast<unsigned int>(lOnFabric);
    if (const std::string lId = acrLine.get("id"); !lId.empty()) {
        lPort.mId = static_cast<std::uint32_t>(std::stoul(lId, nullptr, 16));
    }
    mFabrics.try_emplace(lPort.mFabric);
    arPorts.push_back(std::move(lPort));
}

std::vector<const ZTCStorySite::Port*> ZTCStorySite::findHosts(
    const std::vector<std::string>& acrNames) const {
    return sFind(mHosts, acrNames.empty() ? std::vector<std::string>{"*"} : acrNames);
}

std::vector<ZTCStorySite::Pair> ZTCStorySite::findPairs(const std::vector<std::string>& acrHosts,
                                                        const std::vector<std::string>& acrTargets) const {
    std::vector<Pair> lPairs;
    for (const Port* const lpHost : findHosts(acrHosts)) {
        for (const Port* const lpTarget : sFind(mTargets, acrTargets)) {
            if (lpHost->sees(*lpTarget)) {
                lPairs.emplace_back(lpHost, lpTarget);
            }
        }
    }
    return lPairs.empty() ? (sFail("no port of these is on the other's fabric"), lPairs) : lPairs;
}

ZTSWwn ZTCStorySite::findWwn(const std::string& acrName) const {
    for (const auto* const lpPorts : {&mHosts, &mTargets}) {
        const auto lAt = std::ranges::find(*lpPorts, acrName, &Port::mName);
        if (lAt != lpPorts->end()) {
            return lAt->mWwn;
        }
    }
    const auto lWwn = ZTSWwn::fromText(acrName);
    return lWwn ? *lWwn : (sFail("there is no port " + acrName), ZTSWwn());
}

ZTPortLabels ZTCStorySite::getLabels() const {
    ZTPortLabels lLabels;
    for (const auto* const lpPorts : {&mHosts, &mTargets}) {
        for (const Port& lrPort : *lpPorts) {
            const bool lIsNumber = !mFabrics.at(lrPort.mFabric).empty();
            lLabels[lrPort.mWwn] = {lrPort.mName, lrPort.mArray, lrPort.mController,
                                    lIsNumber ? "" : lrPort.mFabric, ""};
        }
    }
    return lLabels;
}

std::string ZTCStorySite::fabricOf(const Port& acrPort) const {
    const auto lAt = mFabrics.find(acrPort.mFabric);
    if (lAt->second.empty() && !mIsNamed) {
        return fmt::format("10:00:00:05:33:6c:00:{:02x}", std::distance(mFabrics.begin(), lAt));
    }
    return lAt->second.empty() ? acrPort.mFabric : lAt->second;
}

// ---- All is well ----

ZTSHostPorts ZTCStorySite::makePorts() const {
    ZTSHostPorts lPorts;
    for (const Port& lrHost : mHosts) {
        const std::string lHost = fmt::format("host{}", lPorts.mLocal.size() + 1);
        lPorts.mLocal.push_back(
            {{lrHost.mWwn, lrHost.mWwn}, lHost, "Online", "16 Gbit", "NPort", lrHost.mId, fabricOf(lrHost)});
        for (const Port& lrTarget : mTargets) {
            if (lrHost.sees(lrTarget)) {
                lPorts.mRemote.push_back({lrHost.mWwn,
                                          {lrTarget.mWwn, lrTarget.mWwn},
                                          "Online",
                                          "FCP Target",
                                          lrTarget.mId,
                                          fabricOf(lrHost),
                                          30});
            }
        }
    }
    return lPorts;
}

ZTSHostStorage ZTCStorySite::makeStorage() const {
    ZTSHostStorage lStorage;
    std::size_t lDisks = 0;
    for (std::size_t lMap = 0; lMap < mMaps.size(); ++lMap) {
        const std::string lWwid = fmt::format("600601603b20110c{:016x}", lMap);
        ZTSMap lMade{fmt::format("dm-{}", lMap), mMaps[lMap].mName, "3" + lWwid, {}, 0};
        for (const auto& [lpHost, lpTarget] : findPairs({}, {mMaps[lMap].mArray})) {
            ZTSLun lLun;
            lLun.mAddress =
                fmt::format("{}:0:{}:{}", lpHost->mWwn.mBytes[7] + 1, lpTarget->mWwn.mBytes[7], lMap);
            lLun.mInitiator = lpHost->mWwn;
            lLun.mTarget = lpTarget->mWwn;
            lLun.mFabric = fabricOf(*lpHost);
            lLun.mLun = lMap;
            lLun.mDisk = fmt::format("sd{}{}", static_cast<char>('a' + lDisks / 26),
                                     static_cast<char>('a' + lDisks % 26));
            ++lDisks;
            lLun.mWwid = "naa." + lWwid;
            lLun.mState = "running";
            lLun.mAccess = "active/optimized";
            lMade.mPaths.push_back({lLun.mDisk, true, ZTEPathSource::Kernel});
            lStorage.mLuns.push_back(std::move(lLun));
        }
        lMade.mTotal = static_cast<std::uint32_t>(lMade.mPaths.size());
        const std::string lDisk = fmt::format("dm-{}", 100 + lMap);
        if (!mMaps[lMap].mVolume.empty()) {
            lStorage.mVolumes.push_back({lDisk, mMaps[lMap].mVolume, {lMade.mDisk}});
        }
        if (!mMaps[lMap].mMount.empty()) {
            lStorage.mMounts.push_back(
                {mMaps[lMap].mMount, mMaps[lMap].mVolume.empty() ? lMade.mDisk : lDisk, "xfs"});
        }
        lStorage.mMaps.push_back(std::move(lMade));
    }
    std::ranges::sort(lStorage.mMaps, {}, &ZTSMap::mName);
    return lStorage;
}
