#include "WebHoles.h"

#include <algorithm>
#include <map>

#include "Absences.h"
#include "LossText.h"
#include "RecordJson.h"
#include "TimeScan.h"

namespace {

struct Hole {
    ZTSLoss mLoss;
    std::string mText;
};

// Of two that are one; how many is known of it where it is of both.
void sJoin(ZTSLoss& arLoss, const ZTSLoss& acrMore) {
    const auto lMostOf = [](const ZTSLoss& acrOne) {
        return acrOne.mEvents ? acrOne.mEvents : acrOne.mAtMost;
    };
    const auto lSum = [](const auto& acrOne, const auto& acrOther) {
        return acrOne && acrOther ? std::optional(*acrOne + *acrOther) : std::nullopt;
    };
    arLoss.mAtMost = lSum(lMostOf(arLoss), lMostOf(acrMore));
    arLoss.mEvents = lSum(arLoss.mEvents, acrMore.mEvents);
    arLoss.mLast = std::max(arLoss.mLast, acrMore.mLast);
}

void sReadLosses(ZTCStoreReader& arReader, const ZTSWebBins& acrBins, std::vector<Hole>& arHoles) {
    ZTSHistoryFilter lFilter;
    lFilter.mSince = acrBins.mFrom * ZTSecond;
    lFilter.mUntil = acrBins.getEnd() * ZTSecond - 1;
    ZTCLossScan lScan(arReader, lFilter, arReader.readPlace());
    std::map<std::pair<std::string, std::string>, std::size_t> lLastOf;  // of each reason
    std::vector<ZTSLoss> lLosses;
    for (bool lIsMore = true; lIsMore;) {
        lLosses.clear();
        lIsMore = lScan.read(lLosses);
        for (const ZTSLoss& lrLoss : lLosses) {
            const auto [lAt, lIsFirst] =
                lLastOf.try_emplace({lrLoss.mSource, lrLoss.mReason}, arHoles.size());
            if (lIsFirst || lrLoss.mFirst / ZTSecond / acrBins.mWidth >
                                arHoles[lAt->second].mLoss.mLast / ZTSecond / acrBins.mWidth + 1) {
                lAt->second = arHoles.size();
                arHoles.push_back({lrLoss, {}});
            } else {
                sJoin(arHoles[lAt->second].mLoss, lrLoss);
            }
        }
    }
    for (Hole& lrHole : arHoles) {
        lrHole.mText = lossText(lrHole.mLoss);
    }
}

void sPut(ZTCJsonWriter& arJson, const Hole& acrHole) {
    arJson.beginObject();
    arJson.key("first");
    putTime(arJson, toSensorTime(acrHole.mLoss.mFirst));
    arJson.key("last");
    putTime(arJson, toSensorTime(acrHole.mLoss.mLast));
    putTexts(arJson, {{"source", acrHole.mLoss.mSource}, {"reason", acrHole.mLoss.mReason}});
    arJson.key("events");
    acrHole.mLoss.mEvents ? arJson.number(*acrHole.mLoss.mEvents) : arJson.null();
    putTexts(arJson, {{"text", acrHole.mText}});
    arJson.endObject();
}

}  // namespace

void putWebHoles(ZTCJsonWriter& arJson, ZTCStoreReader& arReader, const ZTSWebBins& acrBins,
                 ZTNanoseconds aNow) {
    std::vector<Hole> lHoles;
    sReadLosses(arReader, acrBins, lHoles);
    for (const ZTSAbsence& lrAbsence :
         readAbsences(arReader, acrBins.mFrom * ZTSecond, acrBins.getEnd() * ZTSecond - 1, aNow)) {
        const char* const lpSource = lrAbsence.mIsAgent ? "agent" : "sensor";
        lHoles.push_back({{lrAbsence.mFirst, lrAbsence.mLast, lpSource, "away", {}, {}},
                          lrAbsence.mIsAgent ? "the agent did not run" : "vrx-sn did not run"});
    }
    std::ranges::stable_sort(lHoles, {}, [](const Hole& acrHole) { return acrHole.mLoss.mFirst; });
    arJson.key("holes");
    arJson.beginList();
    for (const Hole& lrHole : lHoles) {
        sPut(arJson, lrHole);
    }
    arJson.endList();
}
