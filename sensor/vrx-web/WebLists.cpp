#include "WebLists.h"

#include "RecordJson.h"
#include "TimeText.h"

ZTSWebView readWebView(ZTCStoreReader& arReader, const ZTSWebRequest& acrRequest) {
    const ZTNanoseconds lNow = toNanoseconds(toSensorTime(std::chrono::system_clock::now()));
    ZTSWebView lView{makeQuery(historyAskOf(acrRequest), arReader, lNow, true), {}};
    lView.mFrame = {arReader.getHost(), arReader.readLabels(), true, arReader.readWindows(),
                    lView.mQuery.mpBelow};
    return lView;
}

void beginWebList(ZTCJsonWriter& arJson, const char* apName, const ZTSHistoryFrame& acrFrame) {
    putHead(arJson, apName);
    putTexts(arJson, {{"host", acrFrame.mHost}});
    arJson.key(apName);
    arJson.beginList();
}
