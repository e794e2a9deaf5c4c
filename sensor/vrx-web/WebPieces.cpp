#include "WebPieces.h"

#include <algorithm>

#include "IncidentJson.h"

namespace {

constexpr std::chrono::seconds sReadEvery(10);  // names and windows change with a reload of vrx-sn

}  // namespace

void ZTCWebPieces::see(ZTCStoreReader& arReader) {
    const auto lNow = std::chrono::steady_clock::now();
    if (mRead != decltype(mRead)() && lNow - mRead < sReadEvery) {
        return;
    }
    mFrame = {arReader.getHost(),
              arReader.readLabels(),
              true,
              arReader.readWindows(),
              std::make_shared<const ZTCPathsBelow>(),
              mpIncidents};
    mRead = lNow;
}

void ZTCWebPieces::see(ZTCStoreReader& arReader, const std::vector<ZTSStoredRecord>& acrRecords) {
    if (acrRecords.empty()) {
        return;
    }
    see(arReader);
    const auto [lFirst, lLast] = std::ranges::minmax_element(
        acrRecords, {}, [](const ZTSStoredRecord& acrRecord) { return acrRecord.mRecord.mFirst; });
    mpIncidents->read(arReader, lFirst->mRecord.mFirst, lLast->mRecord.mFirst);
}

std::string ZTCWebPieces::tell(const ZTSStoredRecord& acrRecord) const {
    std::string lText;
    ZTCJsonWriter lJson(lText);
    lJson.beginObject();
    putStored(lJson, acrRecord, mFrame);
    lJson.endObject();
    return lText;
}

std::string ZTCWebPieces::tell(const ZTSIncident& acrIncident) const {
    std::string lText;
    ZTCJsonWriter lJson(lText);
    lJson.beginObject();
    putIncident(lJson, acrIncident, mFrame.mHost, mFrame.mLabels, {});
    lJson.endObject();
    return lText;
}

std::string makeWebPiece(const ZTSWebEventId& acrId, const char* apEvent, const std::string& acrData) {
    std::string lText = "id: ";
    lText += acrId.toText();
    lText += "\nevent: ";
    lText += apEvent;
    lText += "\ndata: ";
    lText += acrData;
    lText += "\n\n";
    return lText;
}
