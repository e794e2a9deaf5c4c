#include "SignReader.h"

#include <algorithm>
#include <iterator>
#include <string_view>

#include "SignBlocks.h"

namespace {

using Sign = ZTESign;

constexpr ZTNanoseconds sMinute = 60 * ZTSecond;
constexpr ZTNanoseconds sStallTold = 30 * ZTSecond;  // by then, for the first time
constexpr std::size_t sMostPorts = 16384;            // that are remembered

// ---- Counters ----

struct CounterRow {
    std::string_view mName;
    Sign mSign;
};
// The sums of FPINs are left out: their parts are here.
constexpr CounterRow sCounters[] = {
    {"iotmo", Sign::Timeout},
    {"link_failure_count", Sign::LinkErrors},
    {"loss_of_sync_count", Sign::LinkErrors},
    {"loss_of_signal_count", Sign::LinkErrors},
    {"prim_seq_protocol_err_count", Sign::LinkErrors},
    {"invalid_tx_word_count", Sign::LinkErrors},
    {"invalid_crc_count", Sign::LinkErrors},
    {"error_frames", Sign::LinkErrors},
    {"fpin_li_failure_unknown", Sign::LinkErrors},
    {"fpin_li_link_failure_count", Sign::LinkErrors},
    {"fpin_li_loss_of_sync_count", Sign::LinkErrors},
    {"fpin_li_loss_of_signals_count", Sign::LinkErrors},
    {"fpin_li_prim_seq_err_count", Sign::LinkErrors},
    {"fpin_li_invalid_tx_word_count", Sign::LinkErrors},
    {"fpin_li_invalid_crc_count", Sign::LinkErrors},
    {"fpin_li_device_specific", Sign::LinkErrors},
    {"fpin_cn_lost_credit", Sign::CreditLoss},
    {"fpin_cn_credit_stall", Sign::CreditLoss},
    {"fpin_cn_oversubscription", Sign::CreditLoss},
    {"fpin_cn_device_specific", Sign::CreditLoss},
    {"fpin_dn_unknown", Sign::CreditLoss},
    {"fpin_dn_timeout", Sign::CreditLoss},
    {"fpin_dn_unable_to_route", Sign::CreditLoss},
    {"fpin_dn_device_specific", Sign::CreditLoss},
};

using Disks = std::vector<std::string>;

/// Which maps are beneath a disk. Of a storage that stays as long as this.
class Beneath {
  public:
    explicit Beneath(const ZTSHostStorage& acrStorage) : mrStorage(acrStorage) {
        for (const ZTSMap& lrMap : acrStorage.mMaps) {
            mMaps.emplace(lrMap.mDisk, &lrMap.mName);
        }
        for (const ZTSVolume& lrVolume : acrStorage.mVolumes) {
            mVolumes.emplace(lrVolume.mDisk, &lrVolume.mOver);
        }
    }

    /// By each disk, and by each name of a map or volume.
    std::unordered_map<std::string, Disks> list() const {
        std::unordered_map<std::string, Disks> lMaps;
        for (const ZTSMap& lrMap : mrStorage.mMaps) {
            lMaps[lrMap.mDisk] = lMaps[lrMap.mName] = {lrMap.mName};
            for (const ZTSPath& lrPath : lrMap.mPaths) {
                lMaps[lrPath.mDisk] = {lrMap.mName};
            }
        }
        for (const ZTSVolume& lrVolume : mrStorage.mVolumes) {
            const Disks lFound = find(lrVolume.mDisk);
            lMaps.try_emplace(lrVolume.mDisk, lFound);
            lMaps.try_emplace(lrVolume.mName, lFound);
        }
        return lMaps;
    }

  private:
    Disks find(std::string_view aVolume) const {
        std::set<std::string_view> lSeen{aVolume};
        std::set<std::string> lFound;
        for (std::vector<std::string_view> lNext{aVolume}; !lNext.empty();) {
            const std::string_view lDisk = lNext.back();
            lNext.pop_back();
            if (const auto lMap = mMaps.find(lDisk); lMap != mMaps.end()) {
                lFound.insert(*lMap->second);
            } else if (const auto lVolume = mVolumes.find(lDisk); lVolume != mVolumes.end()) {
                std::ranges::copy_if(
                    *lVolume->second, std::back_inserter(lNext),
                    [&](const std::string& acrDisk) { return lSeen.insert(acrDisk).second; });
            }
        }
        return {lFound.begin(), lFound.end()};
    }

    const ZTSHostStorage& mrStorage;
    std::unordered_map<std::string_view, const std::string*> mMaps;  // the names of disks
    std::unordered_map<std::string_view, const Disks*> mVolumes;     // the disks right beneath disks
};

ZTSSign sSign(Sign aSign, ZTNanoseconds aFirst, ZTNanoseconds aLast, std::uint64_t aEvents) {
    ZTSSign lSign;
    lSign.mSign = aSign;
    lSign.mFirst = std::min(aFirst, aLast);
    lSign.mLast = aLast;
    lSign.mEvents = aEvents;
    return lSign;
}

// Congestion that is over does nobody any harm.
Sign sSignOf(const ZTSFpin& acrFpin) {
    if (acrFpin.mDescriptor == "link_integrity") {
        return Sign::FpinLink;
    }
    if (acrFpin.mDescriptor == "delivery") {
        return Sign::FpinDelivery;
    }
    const bool lIsCongestion =
        acrFpin.mDescriptor == "congestion" || acrFpin.mDescriptor == "peer_congestion";
    return lIsCongestion && acrFpin.mEvent != "clear" ? Sign::FpinCongestion : Sign::Count;
}

}  // namespace

// ---- What stands ----

void ZTCSignReader::takeStorage(const ZTSHostStorage& acrStorage) {
    mMapsBeneath = Beneath(acrStorage).list();
}

// Those that have gone are still spoken of.
void ZTCSignReader::takePorts(const ZTSHostPorts& acrPorts) {
    if (mIsTarget.size() > sMostPorts || mFabricOf.size() > sMostPorts) {
        mIsTarget.clear();
        mFabricOf.clear();
        mRemote.clear();
    }
    for (const ZTSLocalPort& lrPort : acrPorts.mLocal) {
        std::string& lrFabric = mFabricOf[lrPort.mNames.mPort];
        lrFabric = lrPort.mFabric.empty() ? lrFabric : lrPort.mFabric;
    }
    for (const ZTSRemotePort& lrPort : acrPorts.mRemote) {
        mRemote.insert(lrPort.mNames.mPort);
        if (!lrPort.mRoles.empty()) {
            mIsTarget[{lrPort.mInitiator, lrPort.mNames.mPort}] =
                lrPort.mRoles.find("Target") != std::string::npos;
        }
    }
}

const std::string& ZTCSignReader::fabricOf(const ZTSWwn& acrInitiator) const {
    static const std::string sUnknown;
    const auto lAt = mFabricOf.find(acrInitiator);
    return lAt != mFabricOf.end() ? lAt->second : sUnknown;
}

// ---- Rows ----

void ZTCSignReader::read(const ZTSRecord& acrRecord, Signs& arSigns) {
    const ZTSSeries& lrSeries = acrRecord.mSeries;
    ZTSSign& lrSign = arSigns.emplace_back();
    readSignBlock(acrRecord, lrSign);
    if (lrSign.mSign == Sign::Count) {
        arSigns.pop_back();
        return;
    }
    lrSign.mFirst = acrRecord.mFirst;
    lrSign.mLast = acrRecord.mLast;
    lrSign.mEvents = acrRecord.mOccurrences;
    lrSign.mInitiator = lrSeries.mInitiator.mPort;
    lrSign.mRemote = lrSeries.mRemote.value_or(ZTSWwn());
    lrSign.mFabric = lrSeries.mFabric;
    lrSign.mCategory = lrSeries.mCategory;
    lrSign.mSubcategory = lrSeries.mSubcategory;
}

// It is about the port that it names: the one that is attached, where that is known. One of the host's own is
// meant itself, whichever of them was told.
void ZTCSignReader::read(const ZTSFpin& acrFpin, Signs& arSigns) {
    const Sign lKind = sSignOf(acrFpin);
    if (lKind == Sign::Count) {
        return;
    }
    ZTSSign lSign = sSign(lKind, acrFpin.mFirst, acrFpin.mLast, acrFpin.mTimes);
    lSign.mInitiator = acrFpin.mInitiator;
    lSign.mFabric = acrFpin.mFabric;
    lSign.mDetail = acrFpin.mEvent;
    const auto lIsKnown = [this](const std::optional<ZTSWwn>& acrPort) {
        return acrPort && (mRemote.contains(*acrPort) || mFabricOf.contains(*acrPort));
    };
    const auto& lrPort =
        !lIsKnown(acrFpin.mAttached) && lIsKnown(acrFpin.mDetecting) ? acrFpin.mDetecting : acrFpin.mAttached;
    if (lrPort && mFabricOf.contains(*lrPort)) {
        lSign.mInitiator = *lrPort;
    } else if (lrPort && *lrPort != acrFpin.mInitiator) {
        lSign.mRemote = *lrPort;
    }
    arSigns.push_back(std::move(lSign));
}

// That it lasts is nothing new.
void ZTCSignReader::read(const ZTSStall& acrStall, Signs& arSigns) {
    const bool lIsTold = acrStall.mLast - acrStall.mFirst > sStallTold;
    ZTSSign lSign = sSign(Sign::Stall, acrStall.mFirst, lIsTold ? acrStall.mFirst : acrStall.mLast, 1);
    std::tie(lSign.mInitiator, lSign.mRemote) = readPair(acrStall.mName);
    lSign.mFabric = fabricOf(lSign.mInitiator);
    lSign.mDetail = acrStall.mKind;
    lSign.mDisk = acrStall.mName;
    auto lAt = mMapsBeneath.find(acrStall.mName);
    lAt = lAt != mMapsBeneath.end() ? lAt : mMapsBeneath.find(acrStall.mDisk);
    if (lAt != mMapsBeneath.end()) {
        lSign.mMaps = lAt->second;
    }
    arSigns.push_back(lSign);
    if (acrStall.mIsOver) {
        lSign.mSign = Sign::StallOver;
        lSign.mFirst = lSign.mLast = acrStall.mLast;
        arSigns.push_back(std::move(lSign));
    }
}

void ZTCSignReader::read(const ZTSLoss& acrLoss, Signs& arSigns) {
    const std::uint64_t lEvents = acrLoss.mEvents.value_or(acrLoss.mAtMost.value_or(1));
    ZTSSign lSign = sSign(Sign::Lost, acrLoss.mFirst, acrLoss.mLast, std::max<std::uint64_t>(lEvents, 1));
    lSign.mDetail = acrLoss.mSource + "/" + acrLoss.mReason;
    arSigns.push_back(std::move(lSign));
}

void ZTCSignReader::read(ZTNanoseconds aMinute, const ZTSMeasured& acrWhose, std::string_view aName,
                         std::uint64_t aValue, Signs& arSigns) {
    const auto* const lpRow = std::ranges::find(sCounters, aName, &CounterRow::mName);
    if (lpRow == std::end(sCounters) || aValue == 0) {
        return;
    }
    ZTSSign lSign = sSign(lpRow->mSign, aMinute, aMinute + sMinute, aValue);
    lSign.mInitiator = acrWhose.mInitiator;
    lSign.mRemote = acrWhose.mRemote;
    lSign.mFabric = fabricOf(acrWhose.mInitiator);
    lSign.mDetail = aName;
    arSigns.push_back(std::move(lSign));
}
