// How many events there were over time, in lanes.
#include <array>

#include "PortText.h"
#include "RecordJson.h"
#include "TimeText.h"
#include "ViewJson.h"
#include "WebCounting.h"
#include "WebHoles.h"
#include "WebRoutes.h"

namespace {

constexpr ZTSWebBy sBys[] = {{"initiator", ZTEStoreAxis::Initiator},
                             {"target", ZTEStoreAxis::Target},
                             {"kind", ZTEStoreAxis::Kind},
                             {"fabric", ZTEStoreAxis::Fabric},
                             {"host", {}}};

ZTSWebBy sByOf(const ZTSWebRequest& acrRequest) {
    static constexpr auto sNames = [] {
        std::array<std::string_view, std::size(sBys)> lNames;
        std::ranges::transform(sBys, lNames.begin(), &ZTSWebBy::mName);
        return lNames;
    }();
    return *std::ranges::find(sBys, choiceOf(acrRequest, "by", sNames), &ZTSWebBy::mName);
}

void sPutLane(ZTCJsonWriter& arJson, const ZTSWebLane& acrLane, const ZTPortLabels& acrLabels) {
    const ZTSPortLabel& lrLabel = labelOf(acrLabels, ZTSWwn::fromText(acrLane.mName));
    arJson.beginObject();
    arJson.key("name");
    acrLane.mIsRest ? arJson.text("") : arJson.escapedTextOrNull(acrLane.mName);
    putTexts(arJson, {{"label", lrLabel.mName}, {"array", lrLabel.mArray}});
    arJson.key("counts");
    arJson.beginList();
    for (const std::uint64_t lCount : acrLane.mCounts) {
        arJson.number(lCount);
    }
    arJson.endList();
    arJson.endObject();
}

}  // namespace

ZTSWebAnswer answerTimeline(ZTCWebHistory& arHistory, const ZTSWebRequest& acrRequest) {
    const ZTNanoseconds lNow = toNanoseconds(toSensorTime(std::chrono::system_clock::now()));
    const ZTSWebBy lBy = sByOf(acrRequest);
    ZTCStoreReader& lrReader = arHistory.getReader();
    const ZTSHistoryQuery lQuery = makeRecordQuery(historyAskOf(acrRequest), lrReader, lNow, true);
    const ZTSWebSpan lSpan = webSpanOf(acrRequest, lQuery.mFilter, lNow);
    ZTSWebBins lBins = chooseWebBins(lSpan, 0);
    std::vector<ZTSWebLane> lLanes;
    if (lQuery.mTakesRecords) {
        lLanes = countWebLanes(lrReader, lQuery.mFilter, lBy, lSpan, lBins);
    }
    const ZTPortLabels lLabels = lrReader.readLabels();

    std::string lText;
    ZTCJsonWriter lJson(lText);
    lJson.beginObject();
    putHead(lJson, "timeline");
    putTexts(lJson, {{"host", lrReader.getHost()}});
    putWebBins(lJson, lBins);
    lJson.key("by");
    lJson.text(lBy.mName);
    lJson.key("lanes");
    lJson.beginList();
    for (const ZTSWebLane& lrLane : lLanes) {
        sPutLane(lJson, lrLane, lLabels);
    }
    lJson.endList();
    putWebHoles(lJson, lrReader, lBins, lNow);
    lJson.endObject();
    return answerJson(std::move(lText += '\n'));
}
