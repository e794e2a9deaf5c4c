#include "StorageChanges.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <map>
#include <set>
#include <tuple>
#include <unordered_map>

namespace {

constexpr std::size_t sMostRows = 256;    // of one kind
constexpr std::size_t sMostMissing = 32;  // paths that a row names

struct Attribute {
    const char* mpName;
    std::string mValue;
};

// Of each kind: by what one is known again, what it is called, what is told of it when it comes and goes, and
// what of it is compared.
using LunKey = std::tuple<ZTSWwn, ZTSWwn, std::uint64_t, std::string_view>;
LunKey sKeyOf(const ZTSLun& acrLun) {
    const bool lHasPorts = acrLun.mInitiator != ZTSWwn() && acrLun.mTarget != ZTSWwn();
    return lHasPorts ? LunKey(acrLun.mInitiator, acrLun.mTarget, acrLun.mLun, "")
                     : LunKey({}, {}, 0, acrLun.mAddress);
}
std::string sNameOf(const ZTSLun& acrLun) {
    return acrLun.getName();
}
std::string sTextOf(const ZTSLun& acrLun) {
    return acrLun.mState;
}
std::vector<Attribute> sAttributesOf(const ZTSLun& acrLun) {
    return {{"state", acrLun.mState},
            {"access", acrLun.mAccess},
            {"queue_depth", acrLun.mQueueDepth ? std::to_string(*acrLun.mQueueDepth) : ""},
            {"serial", acrLun.mSerial},
            {"wwid", acrLun.mWwid}};
}

std::string_view sKeyOf(const ZTSMap& acrMap) {
    return acrMap.mName;
}
std::string sNameOf(const ZTSMap& acrMap) {
    return acrMap.mName;
}
std::string sTextOf(const ZTSMap& acrMap) {
    return fmt::format("{} of {}", acrMap.countUsable(), acrMap.mTotal);
}
std::vector<Attribute> sAttributesOf(const ZTSMap& acrMap) {
    return {{"paths", sTextOf(acrMap)}};
}

std::string_view sKeyOf(const ZTSVolume& acrVolume) {
    return acrVolume.mName;
}
std::string sNameOf(const ZTSVolume& acrVolume) {
    return acrVolume.mName;
}
std::string sTextOf(const ZTSVolume&) {
    return "";
}
std::vector<Attribute> sAttributesOf(const ZTSVolume& acrVolume) {
    return {{"over", fmt::format("{}", fmt::join(acrVolume.mOver, " "))}};
}

/// The rows of one kind: what are too many is counted.
class Rows {
  public:
    Rows(const char* apKind, ZTNanoseconds aTime, std::vector<ZTSChange>& arRows)
        : mpKind(apKind), mTime(aTime), mrRows(arRows) {}

    void add(const std::string& acrName, const char* apEvent, const char* apAttribute,
             const std::string& acrBefore, const std::string& acrAfter) {
        if (mCount == sMostRows) {
            ++mMore[apEvent];
            return;
        }
        ++mCount;
        mrRows.push_back({mTime, mpKind, acrName, apEvent, apAttribute, acrBefore, acrAfter});
    }
    void end(const char* apAttribute = "") const {
        for (const auto& [lrEvent, lMore] : mMore) {
            mrRows.push_back({mTime, mpKind, fmt::format("{} more", lMore), lrEvent, apAttribute, "", ""});
        }
    }

  private:
    const char* const mpKind;
    const ZTNanoseconds mTime;
    std::vector<ZTSChange>& mrRows;
    std::size_t mCount = 0;
    std::map<std::string, std::size_t> mMore;  // by event
};

template <class Thing>
void sCompare(const Thing& acrBefore, const Thing& acrAfter, Rows& arRows) {
    const auto lBefore = sAttributesOf(acrBefore);
    const auto lAfter = sAttributesOf(acrAfter);
    for (std::size_t lAt = 0; lAt < lAfter.size(); ++lAt) {
        if (lBefore[lAt].mValue != lAfter[lAt].mValue) {
            arRows.add(sNameOf(acrAfter), "changed", lAfter[lAt].mpName, lBefore[lAt].mValue,
                       lAfter[lAt].mValue);
        }
    }
}

template <class Thing>
auto sByKey(const std::vector<Thing>& acrThings) {
    std::map<decltype(sKeyOf(acrThings[0])), const Thing*> lThings;
    for (const Thing& lrThing : acrThings) {
        lThings.emplace_hint(lThings.end(), sKeyOf(lrThing), &lrThing);
    }
    return lThings;
}

template <class Thing>
void sList(const char* apKind, const std::vector<Thing>& acrBefore, const std::vector<Thing>& acrAfter,
           ZTNanoseconds aTime, std::vector<ZTSChange>& arChanges) {
    if (acrBefore == acrAfter) {
        return;
    }
    const auto lBefore = sByKey(acrBefore);
    const auto lAfter = sByKey(acrAfter);
    Rows lRows(apKind, aTime, arChanges);
    for (const auto& [lrKey, lrpThing] : lBefore) {
        if (!lAfter.contains(lrKey)) {
            lRows.add(sNameOf(*lrpThing), "went", "", sTextOf(*lrpThing), "");
        }
    }
    for (const auto& [lrKey, lrpThing] : lAfter) {
        const auto lOld = lBefore.find(lrKey);
        if (lOld == lBefore.end()) {
            lRows.add(sNameOf(*lrpThing), "came", "", "", sTextOf(*lrpThing));
        } else if (*lOld->second != *lrpThing) {
            sCompare(*lOld->second, *lrpThing, lRows);
        }
    }
    lRows.end();
}

// ---- Which paths of a map are missing ----

/// The ports of a path: its initiator and its target.
using Pair = std::pair<ZTSWwn, ZTSWwn>;

class Pairs {
  public:
    explicit Pairs(const std::vector<ZTSLun>& acrLuns) {
        for (const ZTSLun& lrLun : acrLuns) {
            if (!lrLun.mDisk.empty() && lrLun.mInitiator != ZTSWwn() && lrLun.mTarget != ZTSWwn()) {
                mPairs.try_emplace(lrLun.mDisk, lrLun.mInitiator, lrLun.mTarget);
            }
        }
    }
    /// Of all paths of a map, or of those that are not usable.
    std::set<Pair> of(const ZTSMap& acrMap, bool aIsAll) const {
        std::set<Pair> lPairs;
        for (const ZTSPath& lrPath : acrMap.mPaths) {
            const auto lAt = mPairs.find(lrPath.mDisk);
            if ((aIsAll || !lrPath.mIsUsable) && lAt != mPairs.end()) {
                lPairs.insert(lAt->second);
            }
        }
        return lPairs;
    }

  private:
    std::unordered_map<std::string_view, Pair> mPairs;
};

/// "INITIATOR>TARGET INITIATOR>TARGET +2". A path that the map does not have any more is known from how the
/// map was at the other look; of one that neither has, only the number is.
std::string sMissingOf(const ZTSMap& acrMap, const Pairs& acrPairs, const ZTSMap& acrOther,
                       const Pairs& acrOtherPairs) {
    const std::uint32_t lUsable = acrMap.countUsable();
    const std::size_t lMissing = acrMap.mTotal > lUsable ? acrMap.mTotal - lUsable : 0;
    std::set<Pair> lNamed = acrPairs.of(acrMap, false);
    const std::set<Pair> lHas = acrPairs.of(acrMap, true);
    for (const Pair& lrPair : acrOtherPairs.of(acrOther, true)) {
        if (lNamed.size() < lMissing && !lHas.contains(lrPair)) {
            lNamed.insert(lrPair);
        }
    }
    std::string lText;
    std::size_t lShown = 0;
    for (const auto& [lrInitiator, lrTarget] : lNamed) {
        if (lShown == std::min(lMissing, sMostMissing)) {
            break;
        }
        lText += fmt::format("{}{}>{}", lShown++ == 0 ? "" : " ", lrInitiator.toText(), lrTarget.toText());
    }
    if (lShown < lMissing) {
        lText += fmt::format("{}+{}", lShown == 0 ? "" : " ", lMissing - lShown);
    }
    return lText;
}

void sListMissing(const ZTSHostStorage& acrBefore, const ZTSHostStorage& acrAfter, ZTNanoseconds aTime,
                  std::vector<ZTSChange>& arChanges) {
    if (acrBefore.mMaps == acrAfter.mMaps) {
        return;
    }
    const Pairs lOld(acrBefore.mLuns);
    const Pairs lNew(acrAfter.mLuns);
    const auto lBefore = sByKey(acrBefore.mMaps);
    Rows lRows("map", aTime, arChanges);
    const ZTSMap lNone;
    for (const ZTSMap& lrMap : acrAfter.mMaps) {
        const auto lAt = lBefore.find(sKeyOf(lrMap));
        const ZTSMap& lrBefore = lAt != lBefore.end() ? *lAt->second : lNone;
        if (lrBefore == lrMap) {
            continue;
        }
        const std::string lWas = sMissingOf(lrBefore, lOld, lrMap, lNew);
        const std::string lIs = sMissingOf(lrMap, lNew, lrBefore, lOld);
        if (lWas != lIs && (lWas + lIs).find('>') != std::string::npos) {
            lRows.add(lrMap.mName, "changed", "missing", lWas, lIs);
        }
    }
    lRows.end("missing");
}

// What the kernel may number anew when it is booted, by its name.
using Names = std::map<std::string_view, std::string_view>;
Names sNamesOf(const ZTSHostStorage& acrStorage) {
    Names lNames;
    for (const ZTSMap& lrMap : acrStorage.mMaps) {
        lNames.emplace(lrMap.mDisk, lrMap.mName);
    }
    for (const ZTSVolume& lrVolume : acrStorage.mVolumes) {
        lNames.emplace(lrVolume.mDisk, lrVolume.mName);
    }
    return lNames;
}

std::string_view sNameOf(std::string_view aDisk, const Names& acrNames) {
    const auto lAt = acrNames.find(aDisk);
    return lAt != acrNames.end() ? lAt->second : aDisk;
}

std::vector<ZTSVolume> sVolumesOf(const ZTSHostStorage& acrStorage, const Names& acrNames) {
    std::vector<ZTSVolume> lVolumes = acrStorage.mVolumes;
    for (ZTSVolume& lrVolume : lVolumes) {
        for (std::string& lrDisk : lrVolume.mOver) {
            lrDisk = sNameOf(lrDisk, acrNames);
        }
        std::ranges::sort(lrVolume.mOver);
    }
    return lVolumes;
}

// There may be more than one at a point, and many of swap. One is the same if its disk is, or that one's
// name.
using MountKey = std::tuple<std::string_view, std::string_view, std::string_view>;
std::array<MountKey, 2> sKeysOf(const ZTSMount& acrMount, const Names& acrNames) {
    return {MountKey(acrMount.mPoint, acrMount.mType, acrMount.mDisk),
            MountKey(acrMount.mPoint, acrMount.mType, sNameOf(acrMount.mDisk, acrNames))};
}

// Those that have none like them.
void sListMounts(const char* apEvent, const std::vector<ZTSMount>& acrMounts, const Names& acrNames,
                 const std::vector<ZTSMount>& acrOthers, const Names& acrNamesOfOthers, Rows& arRows) {
    std::set<MountKey> lOthers;
    for (const ZTSMount& lrOther : acrOthers) {
        const auto lKeys = sKeysOf(lrOther, acrNamesOfOthers);
        lOthers.insert(lKeys.begin(), lKeys.end());
    }
    for (const ZTSMount& lrMount : acrMounts) {
        if (std::ranges::none_of(sKeysOf(lrMount, acrNames),
                                 [&](const MountKey& acrKey) { return lOthers.contains(acrKey); })) {
            const bool lHasCome = *apEvent == 'c';
            arRows.add(lrMount.mPoint, apEvent, "", lHasCome ? "" : lrMount.mType,
                       lHasCome ? lrMount.mType : "");
        }
    }
}

void sListAbove(const ZTSHostStorage& acrBefore, const ZTSHostStorage& acrAfter, ZTNanoseconds aTime,
                std::vector<ZTSChange>& arChanges) {
    if (acrBefore.mVolumes == acrAfter.mVolumes && acrBefore.mMounts == acrAfter.mMounts) {
        return;
    }
    const Names lBefore = sNamesOf(acrBefore);
    const Names lAfter = sNamesOf(acrAfter);
    sList("volume", sVolumesOf(acrBefore, lBefore), sVolumesOf(acrAfter, lAfter), aTime, arChanges);
    Rows lMounts("mount", aTime, arChanges);
    sListMounts("went", acrBefore.mMounts, lBefore, acrAfter.mMounts, lAfter, lMounts);
    sListMounts("came", acrAfter.mMounts, lAfter, acrBefore.mMounts, lBefore, lMounts);
    lMounts.end();
}

}  // namespace

std::vector<ZTSChange> listStorageChanges(const ZTSHostStorage& acrBefore, const ZTSHostStorage& acrAfter,
                                          ZTNanoseconds aTime) {
    std::vector<ZTSChange> lChanges;
    sList("lun", acrBefore.mLuns, acrAfter.mLuns, aTime, lChanges);
    sList("map", acrBefore.mMaps, acrAfter.mMaps, aTime, lChanges);
    sListMissing(acrBefore, acrAfter, aTime, lChanges);
    sListAbove(acrBefore, acrAfter, aTime, lChanges);
    return lChanges;
}
