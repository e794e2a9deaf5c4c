#include "IncidentJson.h"
#include "Incidents.h"
#include "RecordJson.h"
#include "TimeText.h"
#include "ViewJson.h"

namespace {

// Of several, the ids of records are left out: whoever wants them asks for one.
void sPut(ZTCJsonWriter& arJson, const ZTSIncident& acrIncident, const ZTSIncidentFrame& acrFrame,
          const std::vector<std::uint64_t>& acrEvidence = {}) {
    putIncident(arJson, acrIncident, acrFrame.mHost, acrFrame.mLabels, acrEvidence);
}

}  // namespace

void putIncidentFrame(ZTCJsonWriter& arJson, const ZTSIncidentFrame& acrFrame) {
    putHead(arJson, "incidents");
    arJson.key("now");
    arJson.boolean(acrFrame.mIsNow);
    arJson.key("written");
    acrFrame.mWritten != 0 ? putTime(arJson, toSensorTime(acrFrame.mWritten)) : arJson.null();
}

std::string incidentsJson(const std::vector<ZTSIncident>& acrIncidents, const ZTSIncidentFrame& acrFrame,
                          unsigned int aIndent) {
    std::string lText;
    ZTCJsonWriter lJson(lText, aIndent);
    lJson.beginObject();
    putIncidentFrame(lJson, acrFrame);
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
    putIncidentFrame(lJson, acrFrame);
    sPut(lJson, acrIncident, acrFrame, acrEvidence);
    lJson.endObject();
    return lText + "\n";
}
