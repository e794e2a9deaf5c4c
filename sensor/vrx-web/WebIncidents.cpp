#include "Incidents.h"
#include "WebLists.h"

namespace {

constexpr std::size_t sMostIds = 10'000;  // of an incident's records

}  // namespace

ZTSWebAnswer answerIncidents(ZTCWebHistory& arHistory, const ZTSWebRequest& acrRequest) {
    ZTCStoreReader& lrReader = arHistory.getReader();
    const ZTSIncidentFrame lFrame = readIncidentFrame(lrReader);
    ZTSHistoryAsk lAsk = historyAskOf(acrRequest);
    lAsk.mLimit = numberOf(acrRequest, "limit", ZTWebUsual, ZTWebLimit);
    return answerJson(incidentsJson(
        readIncidentList(lrReader, lAsk, {textsOf(acrRequest, "state"), textsOf(acrRequest, "class")},
                         lFrame.mNow, true),
        lFrame, 0));
}

ZTSWebAnswer answerIncident(ZTCWebHistory& arHistory, const ZTSWebRequest& acrRequest) {
    ZTCStoreReader& lrReader = arHistory.getReader();
    const ZTSIncidentTold lTold = tellIncident(
        lrReader, readIncidentOf(lrReader, acrRequest.mPath.substr(acrRequest.mPath.rfind('/') + 1)));
    return answerJson(
        incidentJson(lTold, readIncidentFrame(lrReader), lrReader.readEvidence(lTold.mIncident, sMostIds)));
}
