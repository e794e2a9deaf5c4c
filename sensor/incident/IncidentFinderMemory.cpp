#include "IncidentFinderMemory.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace {

using Json = nlohmann::json;

constexpr unsigned int sForm = 1;  // of another form nothing is known

Json sJsonOf(const ZTSWwn& acrName) {
    return acrName == ZTSWwn() ? "" : acrName.toText();
}
ZTSWwn sWwnOf(const Json& acrJson) {
    return ZTSWwn::fromText(acrJson.get<std::string>()).value_or(ZTSWwn());
}

Json sJsonOf(const ZTSSign& acrSign) {
    return {rowOf(acrSign.mSign).mpName,
            acrSign.mFirst,
            acrSign.mLast,
            acrSign.mEvents,
            sJsonOf(acrSign.mInitiator),
            sJsonOf(acrSign.mRemote),
            acrSign.mFabric,
            acrSign.mDetail,
            acrSign.mDisk,
            acrSign.mMaps,
            acrSign.mLeft,
            acrSign.mTotal,
            acrSign.mCategory,
            acrSign.mSubcategory};
}
ZTSSign sSignOf(const Json& acrJson) {
    ZTSSign lSign;
    lSign.mSign = findSign(acrJson.at(0).get<std::string>()).value();
    acrJson.at(1).get_to(lSign.mFirst);
    acrJson.at(2).get_to(lSign.mLast);
    acrJson.at(3).get_to(lSign.mEvents);
    lSign.mInitiator = sWwnOf(acrJson.at(4));
    lSign.mRemote = sWwnOf(acrJson.at(5));
    acrJson.at(6).get_to(lSign.mFabric);
    acrJson.at(7).get_to(lSign.mDetail);
    acrJson.at(8).get_to(lSign.mDisk);
    acrJson.at(9).get_to(lSign.mMaps);
    acrJson.at(10).get_to(lSign.mLeft);
    acrJson.at(11).get_to(lSign.mTotal);
    acrJson.at(12).get_to(lSign.mCategory);
    acrJson.at(13).get_to(lSign.mSubcategory);
    return lSign;
}

Json sJsonOf(const ZTSFocus& acrFocus) {
    return {static_cast<unsigned int>(acrFocus.mLevel), sJsonOf(acrFocus.mInitiator),
            sJsonOf(acrFocus.mRemote), acrFocus.mName};
}
ZTSFocus sFocusOf(const Json& acrJson) {
    const auto lLevel = acrJson.at(0).get<unsigned int>();
    return {static_cast<ZTEFocus>(std::min(lLevel, static_cast<unsigned int>(ZTEFocus::Host))),
            sWwnOf(acrJson.at(1)), sWwnOf(acrJson.at(2)), acrJson.at(3)};
}

Json sJsonOf(const ZTSCluster& acrCluster) {
    Json lSums = Json::array();
    for (const ZTSSignSum& lrSum : acrCluster.mSums) {
        lSums.push_back(sJsonOf(lrSum.mSign));
    }
    return {{"focus", sJsonOf(acrCluster.mFocus)}, {"sums", std::move(lSums)}};
}

using Pairs = std::map<std::pair<ZTSWwn, ZTSWwn>, ZTNanoseconds>;

Json sJsonOf(const Pairs& acrPairs) {
    Json lJson = Json::array();
    for (const auto& [lrPorts, lSince] : acrPairs) {
        lJson.push_back({sJsonOf(lrPorts.first), sJsonOf(lrPorts.second), lSince});
    }
    return lJson;
}
Pairs sPairsOf(const Json& acrJson) {
    Pairs lPairs;
    for (const Json& lrPair : acrJson) {
        lPairs[{sWwnOf(lrPair.at(0)), sWwnOf(lrPair.at(1))}] = lrPair.at(2);
    }
    return lPairs;
}

Json sJsonOf(const ZTSCaseMap& acrMap) {
    return {acrMap.mLeft,    acrMap.mTotal, acrMap.mLeast,           acrMap.mSince,
            acrMap.mAllGone, acrMap.mBack,  sJsonOf(acrMap.mMissing)};
}
ZTSCaseMap sMapOf(const Json& acrJson) {
    return {acrJson.at(0), acrJson.at(1), acrJson.at(2),          acrJson.at(3),
            acrJson.at(4), acrJson.at(5), sPairsOf(acrJson.at(6))};
}

Json sJsonOf(const ZTSCase& acrCase) {
    Json lJson{{"opened", acrCase.mOpened},
               {"last", acrCase.mLast},
               {"losses", acrCase.mLosses},
               {"agent_gone", acrCase.mAgentGone},
               {"stalled", acrCase.mStalled},
               {"lost", sJsonOf(acrCase.mLostTargets)},
               {"hits",
                {acrCase.mHits.mLuns, acrCase.mHits.mDisks, acrCase.mHits.mMaps, acrCase.mHits.mVolumes,
                 acrCase.mHits.mMounts}}};
    lJson["clusters"] = lJson["maps"] = lJson["down"] = lJson["reached"] = Json::array();
    for (const ZTSCluster& lrCluster : acrCase.mClusters) {
        lJson["clusters"].push_back(sJsonOf(lrCluster));
    }
    for (const auto& [lrName, lrMap] : acrCase.mMaps) {
        lJson["maps"].push_back({lrName, sJsonOf(lrMap)});
    }
    for (const auto& [lrPort, lSince] : acrCase.mDown) {
        lJson["down"].push_back({sJsonOf(lrPort), lSince});
    }
    for (const auto& [lClass, lSign] : acrCase.mReached) {
        lJson["reached"].push_back({nameOf(lClass), rowOf(lSign).mpName});
    }
    return lJson;
}

void sReadClusters(const Json& acrJson, ZTSCase& arCase) {
    for (const Json& lrJson : acrJson) {
        ZTSCluster& lrCluster = arCase.mClusters.emplace_back();
        lrCluster.mFocus = sFocusOf(lrJson.at("focus"));
        for (const Json& lrSum : lrJson.at("sums")) {
            lrCluster.mSums.push_back({sSignOf(lrSum), false});
        }
    }
}

void sReadHits(const Json& acrJson, ZTSIncidentHits& arHits) {
    acrJson.at(0).get_to(arHits.mLuns);
    acrJson.at(1).get_to(arHits.mDisks);
    acrJson.at(2).get_to(arHits.mMaps);
    acrJson.at(3).get_to(arHits.mVolumes);
    acrJson.at(4).get_to(arHits.mMounts);
}

void sRead(const Json& acrJson, ZTSCase& arCase) {
    acrJson.at("opened").get_to(arCase.mOpened);
    acrJson.at("last").get_to(arCase.mLast);
    acrJson.at("losses").get_to(arCase.mLosses);
    acrJson.at("agent_gone").get_to(arCase.mAgentGone);
    acrJson.at("stalled").get_to(arCase.mStalled);
    arCase.mLostTargets = sPairsOf(acrJson.at("lost"));
    sReadHits(acrJson.at("hits"), arCase.mHits);
    sReadClusters(acrJson.at("clusters"), arCase);
    for (const Json& lrMap : acrJson.at("maps")) {
        arCase.mMaps[lrMap.at(0)] = sMapOf(lrMap.at(1));
    }
    for (const Json& lrDown : acrJson.at("down")) {
        arCase.mDown[sWwnOf(lrDown.at(0))] = lrDown.at(1);
    }
    for (const Json& lrReached : acrJson.at("reached")) {
        arCase.mReached.emplace(findIncidentClass(lrReached.at(0).get<std::string>()).value(),
                                findSign(lrReached.at(1).get<std::string>()).value());
    }
}

Json sJsonOf(const ZTSHurt& acrHurt) {
    return {acrHurt.mTenths, acrHurt.mIsNoneLeft, acrHurt.mIsLost, acrHurt.mStandsStill};
}
ZTSHurt sHurtOf(const Json& acrJson) {
    return {acrJson.at(0), acrJson.at(1), acrJson.at(2), acrJson.at(3)};
}

void sRead(const Json& acrJson, ZTSOpenCase& arCase) {
    if (acrJson.at("form") != sForm) {
        return;
    }
    ZTSOpenCase lCase;
    sRead(acrJson.at("case"), lCase.mCase);
    lCase.mFocus = sFocusOf(acrJson.at("focus"));
    acrJson.at("has_state").get_to(lCase.mHasState);
    acrJson.at("restored").get_to(lCase.mRestored);
    acrJson.at("checked").get_to(lCase.mChecked);
    acrJson.at("tell_at").get_to(lCase.mTellAt);
    acrJson.at("is_told").get_to(lCase.mIsTold);
    acrJson.at("is_reopened").get_to(lCase.mIsReopened);
    acrJson.at("told_at").get_to(lCase.mToldAt);
    lCase.mToldHurt = sHurtOf(acrJson.at("told"));
    for (const Json& lrClass : acrJson.at("classes")) {
        lCase.mClasses.insert(findIncidentClass(lrClass.get<std::string>()).value());
    }
    lCase.mIncident = std::move(arCase.mIncident);
    arCase = std::move(lCase);
}

}  // namespace

std::string toMemory(const ZTSOpenCase& acrCase) {
    Json lJson{{"form", sForm},
               {"case", sJsonOf(acrCase.mCase)},
               {"focus", sJsonOf(acrCase.mFocus)},
               {"has_state", acrCase.mHasState},
               {"restored", acrCase.mRestored},
               {"checked", acrCase.mChecked},
               {"tell_at", acrCase.mTellAt},
               {"is_told", acrCase.mIsTold},
               {"is_reopened", acrCase.mIsReopened},
               {"told_at", acrCase.mToldAt},
               {"told", sJsonOf(acrCase.mToldHurt)},
               {"classes", Json::array()}};
    for (const ZTEIncidentClass lClass : acrCase.mClasses) {
        lJson["classes"].push_back(nameOf(lClass));
    }
    return lJson.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::unique_ptr<ZTSOpenCase> fromMemory(const ZTSIncident& acrIncident) {
    auto lpCase = std::make_unique<ZTSOpenCase>();
    lpCase->mIncident = acrIncident;
    lpCase->mCase.mOpened = acrIncident.mOpened;
    lpCase->mCase.mLast = acrIncident.mLast;
    lpCase->mIsTold = true;
    lpCase->mClasses = {acrIncident.mClass};
    try {
        sRead(Json::parse(acrIncident.mMemory), *lpCase);
    } catch (const Json::exception&) {
        // Without it the incident stands as it was told, and closes like one that has no state.
    } catch (const std::bad_optional_access&) {
        // The same: it names what there is not any more.
    }
    lpCase->mCase.mId = acrIncident.mId;
    return lpCase;
}
