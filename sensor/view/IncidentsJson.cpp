#include "IncidentJson.h"
#include "Incidents.h"
#include "RecordJson.h"
#include "ViewJson.h"

namespace {

void sPutFrame(ZTCJsonWriter& arJson, const ZTSIncidentFrame& acrFrame) {
    putHead(arJson, "incidents");
    arJson.key("now");
    arJson.boolean(acrFrame.mIsNow);
    putMoment(arJson, "written", acrFrame.mWritten);
}

// Of several, the ids of records are left out: whoever wants them asks for one.
void sPut(ZTCJsonWriter& arJson, const ZTSIncident& acrIncident, const ZTSIncidentFrame& acrFrame,
          const std::vector<std::uint64_t>& acrEvidence = {}) {
    putIncident(arJson, acrIncident, acrFrame.mHost, acrFrame.mLabels, acrEvidence);
}

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

std::string incidentsJson(const std::vector<ZTSIncident>& acrIncidents, const ZTSIncidentFrame& acrFrame,
                          unsigned int aIndent) {
    std::string lText;
    ZTCJsonWriter lJson(lText, aIndent);
    lJson.beginObject();
    sPutFrame(lJson, acrFrame);
    putTexts(lJson, {{"host", acrFrame.mHost}});
    lJson.key("incidents");
    lJson.beginList();
    for (const ZTSIncident& lrIncident : acrIncidents) {
        lJson.beginObject();
        sPut(lJson, lrIncident, acrFrame);
        lJson.endObject();
    }
    lJson.endList();
    lJson.endObject();
    return lText + "\n";
}

std::string incidentJson(const ZTSIncident& acrIncident, const ZTSIncidentFrame& acrFrame,
                         const std::vector<std::uint64_t>& acrEvidence, unsigned int aIndent) {
    std::string lText;
    ZTCJsonWriter lJson(lText, aIndent);
    lJson.beginObject();
    sPutFrame(lJson, acrFrame);
    sPut(lJson, acrIncident, acrFrame, acrEvidence);
    lJson.endObject();
    return lText + "\n";
}

std::string incidentJson(const ZTSIncidentTold& acrTold, const ZTSIncidentFrame& acrFrame,
                         const std::vector<std::uint64_t>& acrEvidence) {
    std::string lText;
    ZTCJsonWriter lJson(lText);
    lJson.beginObject();
    sPutFrame(lJson, acrFrame);
    sPut(lJson, acrTold.mIncident, acrFrame, acrEvidence);
    sPutSeries(lJson, acrTold.mSeries);
    lJson.endObject();
    return lText + "\n";
}
