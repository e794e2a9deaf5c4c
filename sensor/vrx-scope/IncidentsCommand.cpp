#include <fmt/format.h>

#include <algorithm>

#include "Commands.h"
#include "Failure.h"
#include "IncidentJson.h"
#include "IncidentText.h"
#include "Json.h"
#include "RecordJson.h"
#include "Terminal.h"

namespace {

constexpr std::size_t sMostIds = 100'000;  // of an incident's records, in JSON
constexpr unsigned int sIndent = 2;

void sPutFrame(ZTCJsonWriter& arJson, const ZTSIncidentFrame& acrFrame) {
    putHead(arJson, "incidents");
    arJson.key("now");
    arJson.boolean(acrFrame.mIsNow);
    arJson.key("written");
    acrFrame.mWritten != 0 ? putTime(arJson, toSensorTime(acrFrame.mWritten)) : arJson.null();
}

// Of several, the ids of records are left out: whoever wants them asks for one.
void sPut(ZTCJsonWriter& arJson, const ZTSIncident& acrIncident, const ZTSIncidentFrame& acrFrame,
          const std::vector<std::uint64_t>& acrEvidence = {}) {
    putIncident(arJson, acrIncident, acrFrame.mHost, acrFrame.mLabels, acrEvidence);
}

std::string sListJson(const std::vector<ZTSIncident>& acrIncidents, const ZTSIncidentFrame& acrFrame) {
    std::string lText;
    ZTCJsonWriter lJson(lText, sIndent);
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

std::string sOneJson(const ZTSIncident& acrIncident, const ZTSIncidentFrame& acrFrame,
                     const std::vector<std::uint64_t>& acrEvidence, unsigned int aIndent) {
    std::string lText;
    ZTCJsonWriter lJson(lText, aIndent);
    lJson.beginObject();
    sPutFrame(lJson, acrFrame);
    sPut(lJson, acrIncident, acrFrame, acrEvidence);
    lJson.endObject();
    return lText + "\n";
}

unsigned int sIndentOf(const ZTSScopeOptions& acrOptions) {
    return acrOptions.getForm() == ZTEScopeForm::Json ? sIndent : 0;
}

void sShowList(ZTCStoreReader& arReader, const ZTSScopeOptions& acrOptions) {
    const ZTSIncidentFrame lFrame = readIncidentFrame(arReader);
    const std::vector<ZTSIncident> lIncidents =
        readIncidentList(arReader, acrOptions.mHistory, acrOptions.mIncident, lFrame.mNow, acrOptions.mInUtc);
    switch (acrOptions.getForm()) {
        case ZTEScopeForm::Table:
            put(incidentsText(lIncidents, lFrame, plainTimes(acrOptions.mInUtc)));
            break;
        case ZTEScopeForm::Json:
            put(sListJson(lIncidents, lFrame));
            break;
        default:
            for (const ZTSIncident& lrIncident : lIncidents) {
                put(sOneJson(lrIncident, lFrame, {}, 0));
            }
    }
}

void sShowOne(ZTCStoreReader& arReader, const ZTSScopeOptions& acrOptions) {
    ZTSIncident lIncident = readIncidentOf(arReader, acrOptions.mIncident.mShown);
    const ZTSIncidentFrame lFrame = readIncidentFrame(arReader);
    if (acrOptions.getForm() != ZTEScopeForm::Table) {
        put(sOneJson(lIncident, lFrame, arReader.readEvidence(lIncident, sMostIds), sIndentOf(acrOptions)));
        return;
    }
    const std::uint64_t lId = lIncident.mId;
    const ZTSIncidentTold lTold = tellIncident(arReader, followMerges(arReader, std::move(lIncident)));
    if (lTold.mIncident.mId != lId) {
        put(fmt::format("Incident {} has become part of incident {}:\n", lId, lTold.mIncident.mId));
    }
    put(incidentText(lTold, lFrame, plainTimes(acrOptions.mInUtc)));
}

}  // namespace

int runIncidents(const ZTSScopeOptions& acrOptions) {
    if (!acrOptions.mIncident.mShown.empty()) {
        checkNothingOfList(acrOptions.mHistory, acrOptions.mIncident);
    }
    try {
        ZTCStoreReader lReader(acrOptions.mHistory.mStore);
        acrOptions.mIncident.mShown.empty() ? sShowList(lReader, acrOptions) : sShowOne(lReader, acrOptions);
    } catch (const ZTCScopeClosed&) {
        return 0;  // whoever reads has seen enough
    }
    return 0;
}
