#include <fmt/format.h>

#include <algorithm>

#include "CommandParts.h"
#include "Commands.h"
#include "Failure.h"
#include "IncidentText.h"
#include "Terminal.h"

namespace {

constexpr std::size_t sMostIds = 100'000;  // of an incident's records, in JSON
constexpr unsigned int sIndent = 2;

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
            put(incidentsJson(lIncidents, lFrame, sIndent));
            break;
        default:
            for (const ZTSIncident& lrIncident : lIncidents) {
                put(incidentJson(lrIncident, lFrame, {}, 0));
            }
    }
}

void sShowOne(ZTCStoreReader& arReader, const ZTSScopeOptions& acrOptions) {
    ZTSIncident lIncident = readIncidentOf(arReader, acrOptions.mIncident.mShown);
    const ZTSIncidentFrame lFrame = readIncidentFrame(arReader);
    if (acrOptions.getForm() != ZTEScopeForm::Table) {
        put(incidentJson(lIncident, lFrame, arReader.readEvidence(lIncident, sMostIds),
                         sIndentOf(acrOptions)));
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
