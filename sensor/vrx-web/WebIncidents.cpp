#include "IncidentJson.h"
#include "Incidents.h"
#include "RecordJson.h"
#include "TimeText.h"
#include "WebLists.h"

namespace {

constexpr std::size_t sMostIds = 10'000;  // of an incident's records

void sPutSeries(ZTCJsonWriter& arJson, const std::vector<ZTSIncident>& acrOthers) {
    arJson.key("others_of_series");
    arJson.beginList();
    for (const ZTSIncident& lrOther : acrOthers) {
        arJson.beginObject();
        arJson.key("id");
        arJson.number(lrOther.mId);
        putTexts(arJson, {{"title", lrOther.mTitle}, {"state", nameOf(lrOther.mState)}});
        arJson.key("opened");
        putTime(arJson, toSensorTime(lrOther.mOpened));
        arJson.key("closed");
        lrOther.mClosed != 0 ? putTime(arJson, toSensorTime(lrOther.mClosed)) : arJson.null();
        arJson.endObject();
    }
    arJson.endList();
}

}  // namespace

ZTSWebAnswer answerIncidents(ZTCWebHistory& arHistory, const ZTSWebRequest& acrRequest) {
    ZTCStoreReader& lrReader = arHistory.getReader();
    const ZTSIncidentFrame lFrame = readIncidentFrame(lrReader);
    const std::uint64_t lLimit = numberOf(acrRequest, "limit", ZTWebUsual, ZTWebLimit);
    ZTSHistoryAsk lAsk = historyAskOf(acrRequest);
    lAsk.mLimit = lLimit + 1;
    const std::vector<ZTSIncident> lIncidents = readIncidentList(
        lrReader, lAsk, {textsOf(acrRequest, "state"), textsOf(acrRequest, "class")}, lFrame.mNow, true);

    std::string lText;
    ZTCJsonWriter lJson(lText);
    lJson.beginObject();
    putIncidentFrame(lJson, lFrame);
    putTexts(lJson, {{"host", lFrame.mHost}});
    lJson.key("incidents");
    lJson.beginList();
    std::size_t lCount = 0;
    for (; lCount < std::min(lIncidents.size(), lLimit) && lText.size() < ZTWebBytes; ++lCount) {
        lJson.beginObject();
        putIncident(lJson, lIncidents[lCount], lFrame.mHost, lFrame.mLabels, {});
        lJson.endObject();
    }
    lJson.endList();
    lJson.key("more");
    lJson.boolean(lCount < lIncidents.size());
    lJson.endObject();
    return answerJson(std::move(lText += '\n'));
}

ZTSWebAnswer answerIncident(ZTCWebHistory& arHistory, const ZTSWebRequest& acrRequest) {
    ZTCStoreReader& lrReader = arHistory.getReader();
    const ZTSIncidentTold lTold = tellIncident(
        lrReader, readIncidentOf(lrReader, acrRequest.mPath.substr(acrRequest.mPath.rfind('/') + 1)));
    const ZTSIncidentFrame lFrame = readIncidentFrame(lrReader);

    std::string lText;
    ZTCJsonWriter lJson(lText);
    lJson.beginObject();
    putIncidentFrame(lJson, lFrame);
    putIncident(lJson, lTold.mIncident, lFrame.mHost, lFrame.mLabels,
                lrReader.readEvidence(lTold.mIncident, sMostIds));
    sPutSeries(lJson, lTold.mSeries);
    lJson.endObject();
    return answerJson(std::move(lText += '\n'));
}
