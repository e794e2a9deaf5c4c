#include "IncidentFinderRelation.h"

#include <algorithm>

namespace {

// What kinds of signs say about where the trouble is.
enum Trait : unsigned int {
    OfTarget = 1,  // the target itself says so: no link of the host's can be the reason
    Spreads = 2,   // what is congested slows down others, too
    OfReboot = 4,  // a controller that goes takes these with it, at all of its ports
    OfFabric = 8,  // it tells of ports that have changed
    OfPath = 16,   // what ports behind it do may be its effect
};

unsigned int sTraitsOf(ZTESign aSign) {
    switch (aSign) {
        case ZTESign::NotReady:
        case ZTESign::HardwareError:
            return OfTarget | OfReboot;
        case ZTESign::MediumError:
        case ZTESign::QueueFull:
        case ZTESign::Busy:
            return OfTarget;
        case ZTESign::FpinLink:
        case ZTESign::FpinDelivery:
        case ZTESign::FpinCongestion:
        case ZTESign::CreditLoss:
            return Spreads;
        case ZTESign::TargetLost:
        case ZTESign::Logo:
            return OfReboot | OfFabric;
        case ZTESign::Timeout:
        case ZTESign::Aborted:
        case ZTESign::LoginReject:
        case ZTESign::PathLost:
            return OfReboot;
        default:
            return 0;
    }
}

// Without a remote port it is the initiator that says so.
unsigned int sTraitsOf(const ZTSKnownSign& acrSign) {
    const unsigned int lTraits = sTraitsOf(acrSign.mSign.mSign);
    return acrSign.mpRemote != nullptr ? lTraits : lTraits & ~OfTarget;
}

bool sIsSame(const ZTSPlace* apOne, const ZTSPlace* apOther) {
    return apOne != nullptr && apOne == apOther;
}

bool sMayBeOneFabric(const ZTSSign& acrOne, const ZTSSign& acrOther) {
    return acrOne.mFabric.empty() || acrOther.mFabric.empty() || acrOne.mFabric == acrOther.mFabric;
}

/// A new sign beside one that the cluster has.
class Relation {
  public:
    Relation(const ZTSNewSign& acrNew, bool aIsActive, const ZTSOpenCase& acrCase,
             const ZTSOpenCase::Cluster& acrCluster, const ZTSIncidentTimes& acrTimes)
        : mrNew(acrNew),
          mrOne(*acrNew.mpSign),
          mTraits(sTraitsOf(mrOne)),
          mIsActive(aIsActive),
          mIsWeak(mrOne.isWeak() && !aIsActive),
          mrCase(acrCase),
          mrCluster(acrCluster),
          mrTimes(acrTimes) {}

    ZTERelation to(const ZTSKnownSign& acrOther, const ZTSSignSum& acrSum) const {
        return isInTime(acrOther, acrSum.mSign) ? byPlace(acrOther) : ZTERelation::None;
    }

  private:
    bool isInTime(const ZTSKnownSign& acrOther, const ZTSSign& acrSum) const {
        if (areNear(*mrOne.mpRow, mrNew.mFirst, mrNew.mLast, *acrOther.mpRow, acrSum.mFirst, acrSum.mLast,
                    mrTimes)) {
            return true;
        }
        // What was over before the other one began has nothing to do with how long that lasts.
        if (mIsWeak || mrNew.mLast < acrSum.mFirst) {
            return false;
        }
        const bool lIsRepeat = mrOne.mSign.mSign == acrOther.mSign.mSign && isSamePlace(acrOther);
        return lIsRepeat || (isHeld(mrCase.mCase, acrOther.mSign) && isSamePlace(acrOther));
    }

    bool isSamePlace(const ZTSKnownSign& acrOther) const {
        if (mrOne.mpRemote != nullptr || acrOther.mpRemote != nullptr) {
            return sIsSame(mrOne.mpRemote, acrOther.mpRemote) ||
                   (sIsSame(mrOne.mpController, acrOther.mpController) &&
                    mrOne.mSign.mSign == acrOther.mSign.mSign) ||
                   (blamesInitiator(acrOther) && sIsSame(mrOne.mpInitiator, acrOther.mpInitiator));
        }
        return sIsSame(mrOne.mpInitiator, acrOther.mpInitiator) ||
               (!mrOne.hasPorts() && !acrOther.hasPorts() && mrOne.mPlaces == acrOther.mPlaces);
    }

    bool isAnchored(const ZTSKnownSign& acrSign) const {
        return std::ranges::any_of(mrCluster.mAnchors, [&](const ZTSPlace* apPlace) {
            return sIsSame(apPlace, acrSign.mpRemote) || sIsSame(apPlace, acrSign.mpController);
        });
    }
    // By the link of its initiator.
    bool isExplained(const ZTSKnownSign& acrSign) const {
        return acrSign.mpRemote != nullptr && (sTraitsOf(acrSign) & OfTarget) == 0 &&
               mrCluster.mInitiators.contains(acrSign.mSign.mInitiator);
    }
    // Of a kind of which there was not enough.
    bool isWeak(const ZTSKnownSign& acrOther) const {
        return acrOther.isWeak() && !mrCase.hasReached(acrOther.mSign.mSign);
    }
    bool isSameKind(const ZTSKnownSign& acrOther) const { return mrOne.mSign.mSign == acrOther.mSign.mSign; }

    ZTERelation byPlace(const ZTSKnownSign& acrOther) const {
        if (!mrOne.hasPorts() || !acrOther.hasPorts()) {
            // Of disks also what stands on the same map: it is the map that stands still.
            const auto lCommon = std::ranges::find_first_of(mrOne.mPlaces, acrOther.mPlaces);
            const bool lIsSame = !mrOne.hasPorts() && !acrOther.hasPorts() && lCommon != mrOne.mPlaces.end();
            return lIsSame ? ZTERelation::Pair : ZTERelation::None;
        }
        if (isExplained(acrOther) && (mTraits & OfTarget) != 0) {
            return ZTERelation::None;
        }
        ZTERelation lRelation = ZTERelation::None;
        if (sMayBeOneFabric(mrOne.mSign, acrOther.mSign)) {
            if (sIsSame(mrOne.mpInitiator, acrOther.mpInitiator)) {
                lRelation = byInitiator(acrOther);
            }
            if (sIsSame(mrOne.mpRemote, acrOther.mpRemote) && !isExplained(acrOther)) {
                lRelation =
                    std::max(lRelation, isAnchored(mrOne) ? ZTERelation::Anchor : ZTERelation::Remote);
            }
        }
        return std::max(lRelation, byController(acrOther));
    }

    ZTERelation byInitiator(const ZTSKnownSign& acrOther) const {
        const unsigned int lOthers = sTraitsOf(acrOther);
        if (mrOne.mpRemote == acrOther.mpRemote) {
            return ZTERelation::Pair;
        }
        if (((mTraits | lOthers) & OfTarget) == 0 && ((mTraits | lOthers) & Spreads) != 0) {
            return ZTERelation::Link;
        }
        if (acrOther.mpRemote == nullptr) {
            return behindLink();
        }
        if (mrOne.mpRemote == nullptr) {
            return beforeTargets(acrOther, lOthers);
        }
        if (((mTraits | lOthers) & OfTarget) != 0 || mIsWeak) {
            return ZTERelation::None;
        }
        const bool lWidens = (mIsActive || isSameKind(acrOther)) && !isWeak(acrOther);
        return lWidens && !isAnchored(acrOther) ? ZTERelation::Initiator : ZTERelation::None;
    }
    // The other is about the initiator, this one about what is behind it.
    ZTERelation behindLink() const {
        if ((mTraits & OfTarget) != 0 || !mrCluster.mInitiators.contains(mrOne.mSign.mInitiator)) {
            return ZTERelation::None;
        }
        return mrCase.mCase.mDown.contains(mrOne.mSign.mInitiator) ? ZTERelation::Down : ZTERelation::Link;
    }
    // The other way round.
    ZTERelation beforeTargets(const ZTSKnownSign& acrOther, unsigned int aOthers) const {
        const bool lIsCause = blamesInitiator(mrOne);
        const bool lIsOfFabric = mrOne.isWeak() && mrOne.mSign.mSign == ZTESign::Rscn;
        const bool lMayBe = lIsCause ? (aOthers & OfTarget) == 0 : lIsOfFabric && (aOthers & OfFabric) != 0;
        return lMayBe && !isAnchored(acrOther) ? ZTERelation::Initiator : ZTERelation::None;
    }

    // The same array, whatever its fabrics.
    ZTERelation byController(const ZTSKnownSign& acrOther) const {
        const bool lIsOfReboot = (mTraits & sTraitsOf(acrOther) & OfReboot) != 0;
        const bool lWidens = mIsActive || isSameKind(acrOther);
        if (!(lIsOfReboot || isSameKind(acrOther)) || !lWidens || mIsWeak || isWeak(acrOther) ||
            isExplained(acrOther)) {
            return ZTERelation::None;
        }
        if (sIsSame(mrOne.mpController, acrOther.mpController)) {
            return ZTERelation::Controller;
        }
        return sIsSame(mrOne.mpArray, acrOther.mpArray) && isSameKind(acrOther) ? ZTERelation::Array
                                                                                : ZTERelation::None;
    }

    const ZTSNewSign& mrNew;
    const ZTSKnownSign& mrOne;
    const unsigned int mTraits;
    const bool mIsActive;
    const bool mIsWeak;
    const ZTSOpenCase& mrCase;
    const ZTSOpenCase::Cluster& mrCluster;
    const ZTSIncidentTimes& mrTimes;
};

}  // namespace

bool blamesRemote(const ZTSKnownSign& acrSign) {
    return acrSign.mpRemote != nullptr && (sTraitsOf(acrSign) & (OfTarget | Spreads)) != 0;
}

bool blamesInitiator(const ZTSKnownSign& acrSign) {
    return acrSign.mpInitiator != nullptr && acrSign.mpRemote == nullptr && !acrSign.isWeak();
}

bool areNear(const ZTSSignRow& acrOne, ZTNanoseconds aFirst, ZTNanoseconds aLast, const ZTSSignRow& acrOther,
             ZTNanoseconds aOtherFirst, ZTNanoseconds aOtherLast, const ZTSIncidentTimes& acrTimes) {
    if (aFirst > aOtherFirst) {
        return areNear(acrOther, aOtherFirst, aOtherLast, acrOne, aFirst, aLast, acrTimes);
    }
    const bool lAreStrong = acrOne.mWeight != ZTEWeight::Weak && acrOther.mWeight != ZTEWeight::Weak;
    const unsigned int lRows = acrOne.mBehind + acrOther.mBefore + acrTimes.mSkew;
    return aOtherFirst - aLast <= (lAreStrong ? std::max(lRows, acrTimes.mJoin) : lRows) * ZTSecond;
}

ZTERelation relate(const ZTSNewSign& acrNew, bool aIsActive, const ZTSOpenCase& acrCase, std::size_t aCluster,
                   const ZTSIncidentTimes& acrTimes) {
    const ZTSOpenCase::Cluster& lrCluster = acrCase.mClusters[aCluster];
    const auto& lrSums = acrCase.mCase.mClusters[aCluster].mSums;
    const Relation lRelation(acrNew, aIsActive, acrCase, lrCluster, acrTimes);
    ZTERelation lNearest = ZTERelation::None;
    for (std::size_t lAt = 0; lAt < lrSums.size() && lNearest != ZTERelation::Down; ++lAt) {
        lNearest = std::max(lNearest, lRelation.to(*lrCluster.mSigns[lAt], lrSums[lAt]));
    }
    return lNearest;
}

namespace {

// What all names have in common; empty: nothing.
struct Labels {
    std::set<std::string> mControllers;
    std::set<std::string> mArrays;
    bool mAreAll = true;
};

Labels sLabelsOf(const std::set<ZTSWwn>& acrPorts, const ZTPortLabels& acrLabels) {
    Labels lLabels;
    for (const ZTSWwn& lrPort : acrPorts) {
        const auto lAt = acrLabels.find(lrPort);
        if (lAt == acrLabels.end() || lAt->second.mArray.empty()) {
            lLabels.mAreAll = false;
            continue;
        }
        lLabels.mArrays.insert(lAt->second.mArray);
        lLabels.mControllers.insert(lAt->second.mArray + "/" + lAt->second.mController);
        lLabels.mAreAll = lLabels.mAreAll && !lAt->second.mController.empty();
    }
    return lLabels;
}

// The ports that the signs name; of those that say where the trouble is only theirs.
struct Ports {
    std::set<ZTSWwn> mInitiators;
    std::set<ZTSWwn> mRemotes;
    std::set<std::string> mFabrics;
    std::string mDisk;
};

Ports sPortsOf(const ZTSCluster& acrCluster, const ZTSOpenCase::Cluster& acrBeside, bool aIsAnchored) {
    Ports lPorts;
    for (std::size_t lAt = 0; lAt < acrCluster.mSums.size(); ++lAt) {
        const ZTSSign& lrSign = acrCluster.mSums[lAt].mSign;
        const ZTSKnownSign& lrKnown = *acrBeside.mSigns[lAt];
        if (aIsAnchored ? !blamesRemote(lrKnown) : lrKnown.isWeak()) {
            continue;
        }
        if (lrKnown.mpInitiator != nullptr) {
            lPorts.mInitiators.insert(lrSign.mInitiator);
        }
        if (lrKnown.mpRemote != nullptr) {
            lPorts.mRemotes.insert(lrSign.mRemote);
        }
        lPorts.mFabrics.insert(lrSign.mFabric);
        lPorts.mDisk = std::max(lPorts.mDisk, lrSign.mDisk);
    }
    return lPorts;
}

ZTSFocus sFocusOf(const Ports& acrPorts, const ZTPortLabels& acrLabels) {
    const std::string lFabric = acrPorts.mFabrics.size() == 1 ? *acrPorts.mFabrics.begin() : "";
    const ZTSWwn lInitiator = acrPorts.mInitiators.empty() ? ZTSWwn() : *acrPorts.mInitiators.begin();
    if (acrPorts.mRemotes.size() == 1) {
        return acrPorts.mInitiators.size() == 1
                   ? ZTSFocus{ZTEFocus::Pair, lInitiator, *acrPorts.mRemotes.begin(), ""}
                   : ZTSFocus{ZTEFocus::Remote, {}, *acrPorts.mRemotes.begin(), ""};
    }
    const Labels lLabels = sLabelsOf(acrPorts.mRemotes, acrLabels);
    if (!acrPorts.mRemotes.empty() && lLabels.mAreAll && lLabels.mControllers.size() == 1) {
        return {ZTEFocus::Controller, {}, {}, *lLabels.mControllers.begin()};
    }
    if (acrPorts.mInitiators.size() == 1) {
        return {ZTEFocus::Initiator, lInitiator, {}, ""};
    }
    if (lLabels.mArrays.size() == 1 && !acrPorts.mRemotes.empty()) {
        return {ZTEFocus::Array, {}, {}, *lLabels.mArrays.begin()};
    }
    if (!lFabric.empty()) {
        return {ZTEFocus::Fabric, {}, {}, lFabric};
    }
    return acrPorts.mDisk.empty() ? ZTSFocus() : ZTSFocus{ZTEFocus::Disk, {}, {}, acrPorts.mDisk};
}

}  // namespace

ZTSFocus findFocus(const ZTSCluster& acrCluster, const ZTSOpenCase::Cluster& acrBeside,
                   const ZTPortLabels& acrLabels) {
    if (!acrBeside.mInitiators.empty()) {
        Ports lPorts = sPortsOf(acrCluster, acrBeside, false);
        lPorts.mInitiators = acrBeside.mInitiators;
        lPorts.mRemotes.clear();
        return sFocusOf(lPorts, acrLabels);
    }
    const Ports lPorts = sPortsOf(acrCluster, acrBeside, !acrBeside.mAnchors.empty());
    return sFocusOf(lPorts, acrLabels);
}
