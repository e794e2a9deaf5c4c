#include "StorageChanges.h"

#include <fmt/format.h>

#include <map>
#include <tuple>

namespace {

constexpr std::size_t sMostRows = 256;  // of one kind

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
std::vector<Attribute> sAttributesOf(const ZTSVolume&) {
    return {};
}

std::string_view sKeyOf(const ZTSMount& acrMount) {
    return acrMount.mPoint;
}
std::string sNameOf(const ZTSMount& acrMount) {
    return acrMount.mPoint;
}
std::string sTextOf(const ZTSMount& acrMount) {
    return acrMount.mType;
}
std::vector<Attribute> sAttributesOf(const ZTSMount&) {
    return {};
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
    void end() const {
        for (const auto& [lrEvent, lMore] : mMore) {
            mrRows.push_back({mTime, mpKind, fmt::format("{} more", lMore), lrEvent, "", "", ""});
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

}  // namespace

std::vector<ZTSChange> listStorageChanges(const ZTSHostStorage& acrBefore, const ZTSHostStorage& acrAfter,
                                          ZTNanoseconds aTime) {
    std::vector<ZTSChange> lChanges;
    sList("lun", acrBefore.mLuns, acrAfter.mLuns, aTime, lChanges);
    sList("map", acrBefore.mMaps, acrAfter.mMaps, aTime, lChanges);
    sList("volume", acrBefore.mVolumes, acrAfter.mVolumes, aTime, lChanges);
    sList("mount", acrBefore.mMounts, acrAfter.mMounts, aTime, lChanges);
    return lChanges;
}
