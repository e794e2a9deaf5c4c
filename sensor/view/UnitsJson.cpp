#include "HostJson.h"
#include "RecordJson.h"
#include "Units.h"
#include "ViewJson.h"

namespace {

const char* sNameOf(const std::optional<ZTEPathSource>& acrSource) {
    constexpr const char* lNames[] = {"ports", "multipathd", "kernel"};
    return acrSource ? lNames[static_cast<std::size_t>(*acrSource)] : "";
}

void sPutBoolean(ZTCJsonWriter& arJson, const char* apKey, bool aValue) {
    arJson.key(apKey);
    arJson.boolean(aValue);
}

void sPutPath(ZTCJsonWriter& arJson, const ZTSUnitPath& acrPath, const ZTPortLabels& acrLabels) {
    const ZTSLun& lrLun = acrPath.mLun;
    const auto lPortOf = [](const ZTSWwn& acrPort) {
        return acrPort == ZTSWwn() ? std::nullopt : std::optional(acrPort);
    };
    arJson.beginObject();
    putTexts(arJson, {{"disk", lrLun.mDisk}, {"address", lrLun.mAddress}});
    sPutBoolean(arJson, "here", acrPath.mIsHere);
    putMoment(arJson, "seen", acrPath.mSeen);
    sPutBoolean(arJson, "usable", acrPath.mIsUsable);
    putTexts(arJson, {{"source", sNameOf(acrPath.mSource)},
                      {"why", acrPath.mWhy},
                      {"state", lrLun.mState},
                      {"access", lrLun.mAccess},
                      {"fabric", lrLun.mFabric}});
    arJson.key("initiator");
    putPort(arJson, lPortOf(lrLun.mInitiator), acrLabels);
    arJson.key("target");
    putPort(arJson, lPortOf(lrLun.mTarget), acrLabels);
    putNumber(arJson, "lun", lrLun.mLun);
    arJson.key("queue_depth");
    lrLun.mQueueDepth ? arJson.number(*lrLun.mQueueDepth) : arJson.null();
    arJson.endObject();
}

void sPutStalls(ZTCJsonWriter& arJson, const std::vector<ZTSStoredStall>& acrStalls,
                const std::string& acrHost) {
    arJson.key("stalls");
    arJson.beginList();
    for (const ZTSStoredStall& lrStall : acrStalls) {
        arJson.beginObject();
        putStall(arJson, lrStall.mId, lrStall.mStall, acrHost);
        arJson.endObject();
    }
    arJson.endList();
}

void sPutUnit(ZTCJsonWriter& arJson, const ZTSUnit& acrUnit, const ZTSUnits& acrUnits) {
    const ZTSLun* const lpLun = acrUnit.findLun();
    const ZTSLun lLun = lpLun != nullptr ? *lpLun : ZTSLun();
    putTexts(arJson, {{"map", acrUnit.mMap},
                      {"former_map", acrUnit.mFormerMap},
                      {"disk", acrUnit.mDisk},
                      {"wwid", lLun.mWwid},
                      {"map_wwid", acrUnit.mMapWwid},
                      {"serial", lLun.mSerial},
                      {"vendor", lLun.mVendor},
                      {"model", lLun.mModel}});
    sPutBoolean(arJson, "here", acrUnit.mIsHere);
    putMoment(arJson, "seen", acrUnit.mSeen);
    putMoment(arJson, "since", acrUnit.mSince);
    putNumber(arJson, "usable", acrUnit.mUsable);
    putNumber(arJson, "total", acrUnit.mTotal);
    sPutBoolean(arJson, "inferred", acrUnit.mIsInferred);
    putList(arJson, "mounts", acrUnit.mHit.mMounts);
    putList(arJson, "volumes", acrUnit.mHit.mVolumes);
    arJson.key("paths");
    arJson.beginList();
    for (const ZTSUnitPath& lrPath : acrUnit.mPaths) {
        sPutPath(arJson, lrPath, acrUnits.mLabels);
    }
    arJson.endList();
    sPutStalls(arJson, acrUnit.mStalls, acrUnits.mHost);
}

void sPutFreshness(ZTCJsonWriter& arJson, const ZTSUnits& acrUnits) {
    sPutBoolean(arJson, "now", acrUnits.mIsNow);
    putMoment(arJson, "written", acrUnits.mWritten);
}

// Each with all that it takes to be read alone.
std::string sLinesOf(const ZTSUnits& acrUnits) {
    std::string lText;
    const auto lAddLine = [&](const char* apType, const auto& acrPut) {
        ZTCJsonWriter lJson(lText);
        lJson.beginObject();
        putHead(lJson, "paths");
        putTexts(lJson, {{"type", apType}});
        sPutFreshness(lJson, acrUnits);
        acrPut(lJson);
        lJson.endObject();
        lText += '\n';
    };
    for (const ZTSUnit& lrUnit : acrUnits.mUnits) {
        lAddLine("lun", [&](ZTCJsonWriter& arJson) {
            putTexts(arJson, {{"host", acrUnits.mHost}});
            sPutUnit(arJson, lrUnit, acrUnits);
        });
    }
    for (const ZTSStoredStall& lrStall : acrUnits.mOtherStalls) {
        lAddLine("stall", [&](ZTCJsonWriter& arJson) {
            putStall(arJson, lrStall.mId, lrStall.mStall, acrUnits.mHost);
        });
    }
    for (const ZTSBlindSpot& lrSpot : acrUnits.mBlindSpots) {
        lAddLine("blind_spot", [&](ZTCJsonWriter& arJson) {
            putTexts(arJson, {{"host", acrUnits.mHost}});
            putBlindSpot(arJson, lrSpot);
        });
    }
    return lText;
}

}  // namespace

std::string unitsJson(const ZTSUnits& acrUnits, bool aAsLines) {
    if (aAsLines) {
        return sLinesOf(acrUnits);
    }
    std::string lText;
    ZTCJsonWriter lJson(lText);
    lJson.beginObject();
    putHead(lJson, "paths");
    putTexts(lJson, {{"host", acrUnits.mHost}});
    sPutFreshness(lJson, acrUnits);
    lJson.key("luns");
    lJson.beginList();
    for (const ZTSUnit& lrUnit : acrUnits.mUnits) {
        lJson.beginObject();
        sPutUnit(lJson, lrUnit, acrUnits);
        lJson.endObject();
    }
    lJson.endList();
    sPutStalls(lJson, acrUnits.mOtherStalls, acrUnits.mHost);
    putBlindSpots(lJson, acrUnits.mBlindSpots);
    lJson.endObject();
    return lText + "\n";
}
