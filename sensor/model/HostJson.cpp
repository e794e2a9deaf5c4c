#include "HostJson.h"

#include "RecordJson.h"

namespace {

void sPutNumbers(ZTCJsonWriter& arJson,
                 std::initializer_list<std::pair<const char*, std::uint64_t>> aNumbers) {
    for (const auto& [lpKey, lNumber] : aNumbers) {
        arJson.key(lpKey);
        arJson.number(lNumber);
    }
}

// What stands before all else.
void sPutHead(ZTCJsonWriter& arJson, std::uint64_t aId, ZTNanoseconds aFirst, ZTNanoseconds aLast,
              std::string_view aHost) {
    sPutNumbers(arJson, {{"id", aId}});
    arJson.key("first");
    putTime(arJson, toSensorTime(aFirst));
    arJson.key("last");
    putTime(arJson, toSensorTime(aLast));
    putTexts(arJson, {{"host", aHost}});
}

}  // namespace

void putFpin(ZTCJsonWriter& arJson, std::uint64_t aId, const ZTSFpin& acrFpin, const ZTPortLabels& acrLabels,
             std::string_view aHost) {
    sPutHead(arJson, aId, acrFpin.mFirst, acrFpin.mLast, aHost);
    sPutNumbers(arJson, {{"times", acrFpin.mTimes}});
    arJson.key("initiator");
    putPort(arJson, acrFpin.mInitiator, acrLabels);
    putTexts(arJson, {{"fabric", acrFpin.mFabric},
                      {"descriptor", acrFpin.mDescriptor},
                      {"event", acrFpin.mEvent},
                      {"severity", acrFpin.mSeverity}});
    arJson.key("detecting");
    putPort(arJson, acrFpin.mDetecting, acrLabels);
    arJson.key("attached");
    putPort(arJson, acrFpin.mAttached, acrLabels);
    sPutNumbers(arJson, {{"modifier", acrFpin.mModifier},
                         {"threshold_ms", acrFpin.mThreshold},
                         {"period_ms", acrFpin.mPeriod},
                         {"count", acrFpin.mCount}});
    arJson.key("ports");
    putPorts(arJson, acrFpin.mPorts, acrLabels);
}

void putStall(ZTCJsonWriter& arJson, std::uint64_t aId, const ZTSStall& acrStall, std::string_view aHost) {
    sPutHead(arJson, aId, acrStall.mFirst, acrStall.mLast, aHost);
    arJson.key("over");
    arJson.boolean(acrStall.mIsOver);
    putTexts(arJson, {{"kind", acrStall.mKind},
                      {"disk", acrStall.mDisk},
                      {"name", acrStall.mName},
                      {"hits", acrStall.mHits}});
    sPutNumbers(arJson, {{"in_flight", acrStall.mInFlight}});
}

void putWindow(ZTCJsonWriter& arJson, const ZTSWindow* apWindow) {
    arJson.key("window");
    arJson.escapedTextOrNull(apWindow == nullptr       ? std::string_view()
                             : apWindow->mText.empty() ? std::string_view(apWindow->mWhat)
                                                       : std::string_view(apWindow->mText));
}

void putBlindSpot(ZTCJsonWriter& arJson, const ZTSBlindSpot& acrBlindSpot) {
    putTexts(arJson,
             {{"what", acrBlindSpot.mWhat}, {"where", acrBlindSpot.mWhere}, {"why", acrBlindSpot.mWhy}});
    arJson.key("sure");
    arJson.boolean(acrBlindSpot.mIsSure);
}

void putBlindSpots(ZTCJsonWriter& arJson, const std::vector<ZTSBlindSpot>& acrBlindSpots) {
    arJson.key("blind_spots");
    arJson.beginList();
    for (const ZTSBlindSpot& lrSpot : acrBlindSpots) {
        arJson.beginObject();
        putBlindSpot(arJson, lrSpot);
        arJson.endObject();
    }
    arJson.endList();
}
