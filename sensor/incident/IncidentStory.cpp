#include "IncidentStory.h"

#include <algorithm>
#include <array>
#include <map>
#include <set>
#include <tuple>

#include "CaseView.h"
#include "IncidentSentence.h"
#include "PortText.h"

namespace {

ZTNanoseconds sSeconds(unsigned int aSeconds) {
    return static_cast<ZTNanoseconds>(aSeconds) * ZTSecond;
}

template <class Call>
void sForEachSign(const ZTSCase& acrCase, const Call& acrCall) {
    for (const ZTSCluster& lrCluster : acrCase.mClusters) {
        for (const ZTSSignSum& lrSum : lrCluster.mSums) {
            acrCall(lrSum.mSign);
        }
    }
}

// ---- Extent ----

// What is only beside it does not make it larger.
void sFillExtent(const ZTSCase& acrCase, ZTSIncident& arIncident) {
    std::set<std::string> lFabrics;
    std::set<ZTSWwn> lInitiators;
    std::set<ZTSWwn> lTargets;
    const auto lTake = [&](const std::string& acrFabric, const ZTSWwn& acrInitiator,
                           const ZTSWwn& acrTarget) {
        lFabrics.insert(acrFabric);
        lInitiators.insert(acrInitiator);
        lTargets.insert(acrTarget);
    };
    sForEachSign(acrCase, [&](const ZTSSign& acrSign) {
        if (isStrong(acrCase, acrSign.mSign)) {
            lTake(acrSign.mFabric, acrSign.mInitiator, acrSign.mRemote);
        }
    });
    lTake(arIncident.mFirstCause.mFabric, arIncident.mFirstCause.mInitiator, arIncident.mFirstCause.mTarget);
    for (const ZTSIncidentCause& lrCause : arIncident.mCauses) {
        lTake(lrCause.mFabric, lrCause.mInitiator, lrCause.mTarget);
    }
    lFabrics.erase(std::string());
    lInitiators.erase(ZTSWwn());
    lTargets.erase(ZTSWwn());
    arIncident.mFabrics.assign(lFabrics.begin(), lFabrics.end());
    arIncident.mInitiators.assign(lInitiators.begin(), lInitiators.end());
    arIncident.mTargets.assign(lTargets.begin(), lTargets.end());
}

// ---- What was seen ----

void sFillSymptoms(const ZTSCase& acrCase, ZTSIncident& arIncident) {
    std::map<ZTESign, ZTSIncidentSymptom> lSymptoms;
    sForEachSign(acrCase, [&](const ZTSSign& acrSign) {
        auto [lAt, lIsNew] = lSymptoms.try_emplace(
            acrSign.mSign, ZTSIncidentSymptom{rowOf(acrSign.mSign).mpName, 0, acrSign.mFirst, acrSign.mLast});
        ZTSIncidentSymptom& lrSymptom = lAt->second;
        lrSymptom.mEvents += acrSign.mEvents;
        lrSymptom.mFirst = std::min(lrSymptom.mFirst, acrSign.mFirst);
        lrSymptom.mLast = std::max(lrSymptom.mLast, acrSign.mLast);
    });
    arIncident.mSymptoms.clear();
    arIncident.mEvents = 0;
    for (auto& [lSign, lrSymptom] : lSymptoms) {
        arIncident.mEvents += lrSymptom.mEvents;
        arIncident.mSymptoms.push_back(std::move(lrSymptom));
    }
    std::ranges::stable_sort(arIncident.mSymptoms, {}, &ZTSIncidentSymptom::mFirst);
}

void sFillEvidence(const ZTSCase& acrCase, ZTNanoseconds aJoin, ZTSIncident& arIncident) {
    const auto lWhose = [](const ZTSIncidentEvidence& acrEvidence) {
        return std::tie(acrEvidence.mCategory, acrEvidence.mSubcategory, acrEvidence.mInitiator,
                        acrEvidence.mRemote, acrEvidence.mFabric);
    };
    std::vector<ZTSIncidentEvidence> lAll;
    sForEachSign(acrCase, [&](const ZTSSign& acrSign) {
        if (acrSign.mCategory != 0) {
            lAll.push_back({acrSign.mCategory, acrSign.mSubcategory, acrSign.mInitiator, acrSign.mRemote,
                            acrSign.mFabric, acrSign.mFirst, acrSign.mLast});
        }
    });
    std::ranges::sort(lAll, [&](const ZTSIncidentEvidence& acrOne, const ZTSIncidentEvidence& acrOther) {
        return std::tuple_cat(lWhose(acrOne), std::tie(acrOne.mFirst, acrOne.mLast)) <
               std::tuple_cat(lWhose(acrOther), std::tie(acrOther.mFirst, acrOther.mLast));
    });
    arIncident.mEvidence.clear();
    for (const ZTSIncidentEvidence& lrEvidence : lAll) {
        ZTSIncidentEvidence* const lpLast =
            arIncident.mEvidence.empty() ? nullptr : &arIncident.mEvidence.back();
        if (lpLast != nullptr && lWhose(*lpLast) == lWhose(lrEvidence) &&
            lrEvidence.mFirst <= lpLast->mLast + aJoin) {
            lpLast->mLast = std::max(lpLast->mLast, lrEvidence.mLast);
        } else {
            arIncident.mEvidence.push_back(lrEvidence);
        }
    }
}

// ---- What has changed before ----

// Whose name says whether it is of this incident.
enum class Whose { All, Collector, Ports, Hits };
// What comes and goes with problems like this one is left out: it is what the incident is made of.
struct ChangeRow {
    const char* mpWhat;
    Whose mWhose;
    std::vector<std::string_view> mLeftOut;  ///< attributes
};
const ChangeRow sChangeRows[] = {{"note", Whose::All, {}},
                                 {"host", Whose::All, {}},
                                 {"agent", Whose::Collector, {}},
                                 {"sensor", Whose::Collector, {}},
                                 {"store", Whose::Collector, {}},
                                 {"port", Whose::Ports, {"state"}},
                                 {"remote_port", Whose::Ports, {"state"}},
                                 {"lun", Whose::Ports, {"state", "access"}},
                                 {"map", Whose::Hits, {"paths", "missing"}},
                                 {"volume", Whose::Hits, {}},
                                 {"mount", Whose::Hits, {}}};

bool sIsOf(const std::vector<ZTSWwn>& acrSorted, const ZTSWwn& acrPort) {
    return std::ranges::binary_search(acrSorted, acrPort);
}

bool sIsHit(const ZTSIncidentHits& acrHits, const std::string& acrName) {
    return std::ranges::any_of(
        std::array{&acrHits.mMaps, &acrHits.mVolumes, &acrHits.mMounts},
        [&](const auto* apNames) { return std::ranges::count(*apNames, acrName) != 0; });
}

bool sConcerns(const ZTSChange& acrChange, const ZTSIncident& acrIncident) {
    const auto* const lpRow = std::ranges::find_if(
        sChangeRows, [&](const ChangeRow& acrRow) { return acrChange.mWhat == acrRow.mpWhat; });
    if (lpRow == std::end(sChangeRows) || std::ranges::count(lpRow->mLeftOut, acrChange.mAttribute) != 0) {
        return false;
    }
    switch (lpRow->mWhose) {
        case Whose::All:
            return true;
        case Whose::Collector:
            return acrIncident.mClass == ZTEIncidentClass::CollectorSilent;
        case Whose::Hits:
            return sIsHit(acrIncident.mHits, acrChange.mName);
        case Whose::Ports:
            break;
    }
    const std::vector<ZTSWwn> lPorts = listPortsIn(acrChange.mName);
    return !lPorts.empty() && std::ranges::all_of(lPorts, [&](const ZTSWwn& acrPort) {
        return sIsOf(acrIncident.mInitiators, acrPort) || sIsOf(acrIncident.mTargets, acrPort);
    });
}

void sFillChanges(const ZTSStoryFrame& acrFrame, ZTNanoseconds aOpened, ZTSIncident& arIncident) {
    const ZTNanoseconds lFrom = aOpened - sSeconds(acrFrame.mrRules.mTimes.mChanges);
    arIncident.mChanges.clear();
    for (const ZTSChange& lrChange : acrFrame.mrChanges) {
        if (lrChange.mTime >= lFrom && lrChange.mTime <= aOpened && sConcerns(lrChange, arIncident)) {
            arIncident.mChanges.push_back(lrChange);
        }
    }
    const std::size_t lMost = acrFrame.mrRules.mTimes.mMostChanges;
    if (arIncident.mChanges.size() > lMost) {
        arIncident.mChanges.erase(arIncident.mChanges.begin(),
                                  arIncident.mChanges.end() - static_cast<std::ptrdiff_t>(lMost));
    }
}

// ---- The sentence ----

// What other places say of themselves: without what is hit, which stands at the end.
std::string sAlso(const ZTSCase& acrCase, const ZTSFit& acrFit, const ZTSStoryFrame& acrFrame) {
    std::string lText;
    if (acrFit.mpClass->mRestored == ZTERestored::Paths) {
        return lText;  // that sentence has them all
    }
    for (const ZTSCluster& lrCluster : acrCase.mClusters) {
        const ZTSFit lDeed = findDeed(acrCase, lrCluster, acrFrame);
        if (&lrCluster != acrFit.mpCluster && lDeed.mpOpening != nullptr) {
            lText += "; " + fillSentence(lDeed.mpClass->mpSentence, acrCase, lDeed, acrFrame, false);
        }
    }
    return lText;
}

}  // namespace

void tellStory(const ZTSCase& acrCase, ZTEIncidentClass aClass, const ZTSStoryFrame& acrFrame,
               ZTSIncident& arIncident) {
    const ZTNanoseconds lJoin = sSeconds(acrFrame.mrRules.mTimes.mJoin);
    arIncident.mClass = aClass;
    arIncident.mHits = acrCase.mHits;
    arIncident.mLosses = acrCase.mLosses;
    arIncident.mCauses = findCauses(acrCase, acrFrame);
    arIncident.mFirstCause = {};
    if (!arIncident.mCauses.empty()) {
        arIncident.mFirstCause = arIncident.mCauses.front();
        arIncident.mCauses.erase(arIncident.mCauses.begin());
    }
    sFillExtent(acrCase, arIncident);
    sFillSymptoms(acrCase, arIncident);
    sFillEvidence(acrCase, lJoin, arIncident);
    sFillChanges(acrFrame, acrCase.mOpened, arIncident);
    const auto* const lpWorst = findWorstMap(acrCase);
    arIncident.mPathsLeft = lpWorst != nullptr ? lpWorst->second.mLeft : 0;
    arIncident.mPathsTotal = lpWorst != nullptr ? lpWorst->second.mTotal : 0;

    const ZTSFit lFit = fitOf(acrCase, aClass, acrFrame);
    arIncident.mTitle =
        fillSentence(lFit.mpClass->mpSentence, acrCase, lFit, acrFrame) + sAlso(acrCase, lFit, acrFrame);
    arIncident.mSuggestion = fillSentence(lFit.mpClass->mpSuggestion, acrCase, lFit, acrFrame);
}
