#include "Disguise.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>
#include <iterator>
#include <regex>

#include "EventBlock.h"
#include "PortText.h"

namespace {

// What the values of a change are. Those that are not here may be anything that somebody has written.
enum class Value : unsigned char { Plain, Fabric, Lun, Disks };
constexpr std::pair<const char*, Value> sValues[] = {{"", Value::Plain},
                                                     {"state", Value::Plain},
                                                     {"speed", Value::Plain},
                                                     {"port_id", Value::Plain},
                                                     {"firmware", Value::Plain},
                                                     {"driver", Value::Plain},
                                                     {"dev_loss_tmo", Value::Plain},
                                                     {"access", Value::Plain},
                                                     {"queue_depth", Value::Plain},
                                                     {"paths", Value::Plain},
                                                     {"missing", Value::Plain},
                                                     {"kernel", Value::Plain},
                                                     {"lost_changes", Value::Plain},
                                                     {"lost_messages", Value::Plain},
                                                     {"fabric", Value::Fabric},
                                                     {"serial", Value::Lun},
                                                     {"wwid", Value::Lun},
                                                     {"over", Value::Disks}};
// What the names of a change's things are; the others have none, or such as texts hold.
constexpr std::pair<const char*, ZTENamed> sNames[] = {{"map", ZTENamed::Map},
                                                       {"volume", ZTENamed::Volume},
                                                       {"mount", ZTENamed::Mount},
                                                       {"store", ZTENamed::Text},
                                                       {"note", ZTENamed::User}};

template <class Rows>
auto sFind(const Rows& acrRows, const std::string& acrName) {
    return std::find_if(std::begin(acrRows), std::end(acrRows),
                        [&](const auto& acrRow) { return acrName == acrRow.first; });
}

// A disk as the kernel numbers it, whatever the site: "sdb", "dm-3", "3:0:1:2".
bool sIsKernels(const std::string& acrDisk) {
    static const std::regex sDisks(
        "(sd|vd)[a-z]{1,3}\\d*|dm-\\d+|nvme\\d+n\\d+(p\\d+)?|(md|loop|sr)\\d+(p\\d+)?|\\d+:\\d+:\\d+:\\d+");
    return std::regex_match(acrDisk, sDisks);
}

// "12 more", of rows for which there was no room.
bool sIsRest(const std::string& acrName) {
    return acrName.ends_with(" more") && acrName.find_first_not_of("0123456789") == acrName.size() - 5;
}

void sAddNames(const ZTEventGroup& acrFields, ZTCPseudonyms& arPseudonyms) {
    for (const ZTSEventField& lrField : acrFields) {
        if (const auto* const lpName = std::get_if<ZTSWwn>(&lrField.mValue)) {
            arPseudonyms.of(*lpName);
        }
    }
}

std::string sHostName() {
    std::array<char, HOST_NAME_MAX + 1> lName{};
    return gethostname(lName.data(), lName.size() - 1) == 0 ? lName.data() : "";
}

}  // namespace

ZTCDisguise::ZTCDisguise(ZTCStoreReader& arReader, const ZTSIncident& acrIncident) {
    const std::string lHost =
        mPseudonyms.of(ZTENamed::Host, arReader.getHost().empty() ? sHostName() : arReader.getHost());
    for (const std::string& lrName : {arReader.getHost(), sHostName()}) {
        mPseudonyms.learnAlias(lrName, lHost);
        mPseudonyms.learnAlias(lrName.substr(0, lrName.find('.')), lHost);
    }
    learnPorts(arReader);
    learnStorage(arReader);
    // The texts of an incident name what it hits, also what has gone since.
    of(acrIncident);
}

void ZTCDisguise::learnPorts(ZTCStoreReader& arReader) {
    for (const auto& [lrPort, lrLabel] : arReader.readLabels()) {
        mPseudonyms.learnPort(lrPort, lrLabel.mName);
        const std::string lArray = mPseudonyms.of(ZTENamed::Array, lrLabel.mArray);
        const std::string lController = mPseudonyms.of(ZTENamed::Controller, lrLabel.mController);
        if (!lrLabel.mController.empty()) {
            mPseudonyms.learnAlias(fmt::format("{}/{}", lrLabel.mArray, lrLabel.mController),
                                   fmt::format("{}/{}", lArray, lController));
            for (const char* const lpBefore : {"controller", "Controller"}) {
                mPseudonyms.learnAlias(fmt::format("{} {}", lpBefore, lrLabel.mController),
                                       fmt::format("{} {}", lpBefore, lController));
            }
        }
        mPseudonyms.of(ZTENamed::Fabric, lrLabel.mFabric);
        mPseudonyms.of(ZTENamed::SwitchPort, lrLabel.mSwitchPort);
    }
    for (const ZTSStoredPort& lrPort : arReader.readPorts()) {
        ZTSPortNames lNames = lrPort.mPort.mNames;
        replace(lNames);
        mPseudonyms.of(ZTENamed::Fabric, lrPort.mPort.mFabric);
    }
    for (const ZTSStoredRemotePort& lrPort : arReader.readRemotePorts()) {
        ZTSPortNames lNames = lrPort.mPort.mNames;
        replace(lNames);
    }
    for (const ZTSStoredSeries& lrSeries : arReader.readSeries()) {
        mPseudonyms.of(ZTENamed::Fabric, lrSeries.mSeries.mFabric);
    }
}

void ZTCDisguise::learnStorage(ZTCStoreReader& arReader) {
    const ZTSStoredStorage lStorage = arReader.readStorage();
    for (const ZTSStoredLun& lrLun : lStorage.mLuns) {
        mPseudonyms.of(ZTENamed::Lun, lrLun.mLun.mWwid);
        mPseudonyms.of(ZTENamed::Lun, lrLun.mLun.mSerial);
    }
    for (const ZTSStoredMap& lrMap : lStorage.mMaps) {
        mPseudonyms.of(ZTENamed::Map, lrMap.mMap.mName);
        const std::string lLun = mPseudonyms.of(ZTENamed::Lun, lunWwidOf(lrMap.mMap.mWwid));
        lLun.empty() ? void(mPseudonyms.of(ZTENamed::Lun, lrMap.mMap.mWwid))
                     : mPseudonyms.learnAlias(lrMap.mMap.mWwid, lLun);
    }
    for (const ZTSVolume& lrVolume : lStorage.mVolumes) {
        if (lrVolume.mName != lrVolume.mDisk) {
            mPseudonyms.of(ZTENamed::Volume, lrVolume.mName);
        }
    }
    for (const ZTSMount& lrMount : lStorage.mMounts) {
        mPseudonyms.of(ZTENamed::Mount, lrMount.mPoint);
    }
}

void ZTCDisguise::replace(std::optional<ZTSWwn>& arName) {
    if (arName) {
        replace(*arName);
    }
}

void ZTCDisguise::replace(ZTSPortNames& arNames) {
    replace(arNames.mNode);
    replace(arNames.mPort);
}

void ZTCDisguise::replace(ZTSIncidentCause& arCause) {
    replace(arCause.mInitiator);
    replace(arCause.mTarget);
    replace(ZTENamed::Fabric, arCause.mFabric);
}

void ZTCDisguise::replace(ZTENamed aWhat, std::vector<std::string>& arTexts) {
    for (std::string& lrText : arTexts) {
        replace(aWhat, lrText);
    }
}

// A name that somebody has given it, not the kernel.
void ZTCDisguise::replaceDisk(ZTENamed aWhat, std::string& arText) {
    if (mPseudonyms.knows(arText) || !sIsKernels(arText)) {
        replace(aWhat, arText);
    }
}

// Its WWID, or what its paths call it.
void ZTCDisguise::replaceLun(std::string& arText) {
    if (!listPortsIn(arText).empty()) {
        arText = mPseudonyms.inText(arText);
    } else {
        replaceDisk(ZTENamed::Lun, arText);
    }
}

void ZTCDisguise::replaceHits(ZTSIncidentHits& arHits) {
    std::ranges::for_each(arHits.mLuns, [this](std::string& arLun) { replaceLun(arLun); });
    std::ranges::for_each(arHits.mDisks, [this](std::string& arDisk) { replaceLun(arDisk); });
    replace(ZTENamed::Map, arHits.mMaps);
    for (std::string& lrVolume : arHits.mVolumes) {
        replaceDisk(ZTENamed::Volume, lrVolume);
    }
    replace(ZTENamed::Mount, arHits.mMounts);
}

ZTPortLabels ZTCDisguise::labelsOf(const ZTPortLabels& acrLabels) {
    ZTPortLabels lLabels;
    for (auto [lPort, lLabel] : acrLabels) {
        replace(ZTENamed::Port, lLabel.mName);
        replace(ZTENamed::Array, lLabel.mArray);
        replace(ZTENamed::Controller, lLabel.mController);
        replace(ZTENamed::Fabric, lLabel.mFabric);
        replace(ZTENamed::SwitchPort, lLabel.mSwitchPort);
        lLabels.emplace(mPseudonyms.of(lPort), std::move(lLabel));
    }
    return lLabels;
}

ZTSIncident ZTCDisguise::of(ZTSIncident aIncident) {
    replace(ZTENamed::Fabric, aIncident.mFabrics);
    for (auto* const lpPorts : {&aIncident.mInitiators, &aIncident.mTargets}) {
        std::ranges::for_each(*lpPorts, [this](ZTSWwn& arPort) { replace(arPort); });
    }
    replaceHits(aIncident.mHits);
    replace(aIncident.mFirstCause);
    for (ZTSIncidentCause& lrCause : aIncident.mCauses) {
        replace(lrCause);
    }
    for (ZTSIncidentEvidence& lrRow : aIncident.mEvidence) {
        replace(lrRow.mInitiator);
        replace(lrRow.mRemote);
        replace(ZTENamed::Fabric, lrRow.mFabric);
    }
    for (ZTSChange& lrChange : aIncident.mChanges) {
        lrChange = of(std::move(lrChange));
    }
    if (aIncident.mAcknowledged) {
        replace(ZTENamed::User, aIncident.mAcknowledged->mWho);
        replace(ZTENamed::Text, aIncident.mAcknowledged->mNote);
    }
    replace(ZTENamed::Text, aIncident.mWindow);
    aIncident.mTitle = mPseudonyms.inText(aIncident.mTitle);
    aIncident.mSuggestion = mPseudonyms.inText(aIncident.mSuggestion);
    aIncident.mMemory.clear();
    return aIncident;
}

ZTSStoredRecord ZTCDisguise::of(ZTSStoredRecord aRecord) {
    ZTSRecord& lrRecord = aRecord.mRecord;
    ZTSSeries& lrSeries = lrRecord.mSeries;
    const auto lFields = decodeEventBlock(lrSeries.mCategory, lrSeries.mSubcategory, lrRecord.mData);
    if (lFields) {
        sAddNames(*lFields, mPseudonyms);
        mPseudonyms.inBytes(lrRecord.mData);
    } else {
        lrRecord.mData.clear();  // nobody knows what stands in it
    }
    replace(lrSeries.mInitiator);
    if (lrSeries.mTarget) {
        replace(*lrSeries.mTarget);
    }
    replace(lrSeries.mRemote);
    replace(ZTENamed::Fabric, lrSeries.mFabric);
    return aRecord;
}

void ZTCDisguise::replaceValue(const ZTSChange& acrChange, std::string& arValue) {
    const auto* const lpRow = sFind(sValues, acrChange.mAttribute);
    const bool lIsAnything =
        lpRow == std::end(sValues) || acrChange.mWhat == "note" || acrChange.mWhat == "store";
    switch (lIsAnything ? Value::Plain : lpRow->second) {
        case Value::Fabric:
            replace(ZTENamed::Fabric, arValue);
            break;
        case Value::Lun:
            replace(ZTENamed::Lun, arValue);
            break;
        case Value::Disks: {
            std::string lDisks;
            for (std::size_t lAt = 0; lAt < arValue.size();) {
                const std::size_t lEnd = std::min(arValue.find(' ', lAt), arValue.size());
                std::string lDisk = arValue.substr(lAt, lEnd - lAt);
                replaceDisk(ZTENamed::Volume, lDisk);
                lDisks += (lDisks.empty() ? "" : " ") + lDisk;
                lAt = lEnd + 1;
            }
            arValue = lDisks;
            break;
        }
        default:
            arValue = lIsAnything ? mPseudonyms.of(ZTENamed::Text, arValue) : mPseudonyms.inText(arValue);
    }
}

ZTSChange ZTCDisguise::of(ZTSChange aChange) {
    replaceValue(aChange, aChange.mBefore);
    replaceValue(aChange, aChange.mAfter);
    const auto* const lpName = sFind(sNames, aChange.mWhat);
    if (lpName == std::end(sNames)) {
        aChange.mName = mPseudonyms.inText(aChange.mName);
    } else if (!sIsRest(aChange.mName)) {
        replace(lpName->second, aChange.mName);
    }
    if (aChange.mWhat == "note") {
        replace(ZTENamed::Text, aChange.mAttribute);
    }
    return aChange;
}

ZTSStoredFpin ZTCDisguise::of(ZTSStoredFpin aFpin) {
    ZTSFpin& lrFpin = aFpin.mFpin;
    replace(lrFpin.mInitiator);
    replace(ZTENamed::Fabric, lrFpin.mFabric);
    replace(lrFpin.mDetecting);
    replace(lrFpin.mAttached);
    std::ranges::for_each(lrFpin.mPorts, [this](ZTSWwn& arPort) { replace(arPort); });
    return aFpin;
}

// "/data, /home and 3 more".
std::string ZTCDisguise::hitsOf(const std::string& acrHits) {
    std::string lText;
    const std::size_t lAnd = acrHits.rfind(" and ");
    const bool lHasRest = lAnd != std::string::npos && sIsRest(acrHits.substr(lAnd + 5));
    const std::string lNames = lHasRest ? acrHits.substr(0, lAnd) : acrHits;
    for (std::size_t lAt = 0; lAt < lNames.size();) {
        const std::size_t lEnd = std::min(lNames.find(", ", lAt), lNames.size());
        lText +=
            (lText.empty() ? "" : ", ") + mPseudonyms.of(ZTENamed::Mount, lNames.substr(lAt, lEnd - lAt));
        lAt = lEnd + 2;
    }
    return lText + (lHasRest ? acrHits.substr(lAnd) : "");
}

ZTSStoredStall ZTCDisguise::of(ZTSStoredStall aStall) {
    ZTSStall& lrStall = aStall.mStall;
    if (lrStall.mKind == "map" || lrStall.mKind == "volume") {
        replaceDisk(lrStall.mKind == "map" ? ZTENamed::Map : ZTENamed::Volume, lrStall.mName);
    } else {
        replaceLun(lrStall.mName);
    }
    lrStall.mHits = hitsOf(lrStall.mHits);
    return aStall;
}
