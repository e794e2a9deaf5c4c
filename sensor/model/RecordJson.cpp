#include "RecordJson.h"

#include "EventBlock.h"
#include "PortText.h"
#include "TimeText.h"

namespace {

void sPutFields(ZTCJsonWriter& arJson, const ZTEventGroup& acrFields);

struct ValuePutter {
    ZTCJsonWriter& mrJson;

    void operator()(std::monostate) const { mrJson.null(); }
    void operator()(std::uint32_t aNumber) const { mrJson.number(aNumber); }
    void operator()(const ZTSWwn& acrName) const { mrJson.text(acrName.toText()); }
    void operator()(const std::string& acrText) const { mrJson.text(acrText); }
    void operator()(const std::vector<std::uint32_t>& acrValues) const {
        mrJson.beginList();
        for (const std::uint32_t lValue : acrValues) {
            mrJson.number(lValue);
        }
        mrJson.endList();
    }
    void operator()(const std::vector<ZTEventGroup>& acrGroups) const {
        mrJson.beginList();
        for (const ZTEventGroup& lrGroup : acrGroups) {
            sPutFields(mrJson, lrGroup);
        }
        mrJson.endList();
    }
};

void sPutFields(ZTCJsonWriter& arJson, const ZTEventGroup& acrFields) {
    arJson.beginObject();
    for (const ZTSEventField& lrField : acrFields) {
        arJson.key(lrField.mpName);
        std::visit(ValuePutter{arJson}, lrField.mValue);
    }
    arJson.endObject();
}

std::string sDigitsOf(std::span<const std::uint8_t> aBytes) {
    constexpr char lDigits[] = "0123456789abcdef";
    std::string lText(2 * aBytes.size(), '\0');
    auto lAt = lText.begin();
    for (const std::uint8_t lByte : aBytes) {
        *lAt++ = lDigits[lByte >> 4];
        *lAt++ = lDigits[lByte & 15];
    }
    return lText;
}

void sPutNumber(ZTCJsonWriter& arJson, const std::optional<std::uint64_t>& acrNumber) {
    acrNumber ? arJson.number(*acrNumber) : arJson.null();
}

}  // namespace

ZTSRecordView viewOf(const ZTSRecord& acrRecord) {
    const ZTSSeries& lrSeries = acrRecord.mSeries;
    return {lrSeries.mInitiator,           lrSeries.mCategory,
            lrSeries.mSubcategory,         lrSeries.mTarget,
            acrRecord.mOccurrences,        toSensorTime(acrRecord.mFirst),
            toSensorTime(acrRecord.mLast), acrRecord.mData};
}

void putNames(ZTCJsonWriter& arJson, const ZTSPortNames& acrNames) {
    arJson.beginObject();
    arJson.key("node_name");
    arJson.text(acrNames.mNode.toText());
    arJson.key("port_name");
    arJson.text(acrNames.mPort.toText());
    arJson.endObject();
}

void putTime(ZTCJsonWriter& arJson, const ZTSSensorTime& acrTime) {
    arJson.textOrNull(isoText(acrTime));
}

void putTexts(ZTCJsonWriter& arJson, std::initializer_list<std::pair<const char*, std::string_view>> aTexts) {
    for (const auto& [lpKey, lText] : aTexts) {
        arJson.key(lpKey);
        arJson.escapedTextOrNull(lText);
    }
}

void putPort(ZTCJsonWriter& arJson, const std::optional<ZTSWwn>& acrPort, const ZTPortLabels& acrLabels) {
    if (!acrPort) {
        arJson.null();
        return;
    }
    arJson.beginObject();
    arJson.key("port_name");
    arJson.text(acrPort->toText());
    putLabel(arJson, *acrPort, acrLabels);
    arJson.endObject();
}

void putPorts(ZTCJsonWriter& arJson, const std::vector<ZTSWwn>& acrPorts, const ZTPortLabels& acrLabels) {
    arJson.beginList();
    for (const ZTSWwn& lrPort : acrPorts) {
        putPort(arJson, lrPort, acrLabels);
    }
    arJson.endList();
}

void putLabel(ZTCJsonWriter& arJson, const ZTSWwn& acrPort, const ZTPortLabels& acrLabels) {
    const ZTSPortLabel& lrLabel = labelOf(acrLabels, acrPort);
    putTexts(arJson, {{"name", lrLabel.mName},
                      {"array", lrLabel.mArray},
                      {"controller", lrLabel.mController},
                      {"switch_port", lrLabel.mSwitchPort}});
}

void putRecord(ZTCJsonWriter& arJson, const ZTSRecordView& acrRecord) {
    arJson.key("initiator");
    putNames(arJson, acrRecord.mrInitiator);
    arJson.key("kind");
    const char* const lpKind = findEventKind(acrRecord.mCategory, acrRecord.mSubcategory);
    lpKind != nullptr ? arJson.text(lpKind) : arJson.null();
    arJson.key("category");
    arJson.number(acrRecord.mCategory);
    arJson.key("subcategory");
    arJson.number(acrRecord.mSubcategory);
    arJson.key("occurrences");
    arJson.number(acrRecord.mOccurrences);
    arJson.key("first");
    putTime(arJson, acrRecord.mFirst);
    arJson.key("last");
    putTime(arJson, acrRecord.mLast);
    arJson.key("target");
    acrRecord.mrTarget ? putNames(arJson, *acrRecord.mrTarget) : arJson.null();
    arJson.key("event");
    const auto lFields = decodeEventBlock(acrRecord.mCategory, acrRecord.mSubcategory, acrRecord.mData);
    lFields ? sPutFields(arJson, *lFields) : arJson.null();
    arJson.key("data");
    arJson.text(sDigitsOf(acrRecord.mData));
}

void putPlace(ZTCJsonWriter& arJson, const ZTSRecordPlace& acrPlace) {
    const ZTSSeries& lrSeries = acrPlace.mrSeries;
    arJson.key("id");
    arJson.number(acrPlace.mId);
    arJson.key("open");
    arJson.boolean(acrPlace.mIsOpen);
    arJson.key("host");
    arJson.escapedTextOrNull(acrPlace.mHost);
    arJson.key("fabric");
    arJson.escapedTextOrNull(lrSeries.mFabric);
    arJson.key("remote_port_name");
    arJson.textOrNull(lrSeries.mRemote ? lrSeries.mRemote->toText() : "");
    arJson.key("names");
    arJson.beginObject();
    const ZTSPortLabel& lrInitiator = labelOf(acrPlace.mrLabels, lrSeries.mInitiator.mPort);
    const ZTSPortLabel& lrTarget = labelOf(acrPlace.mrLabels, lrSeries.mRemote);
    putTexts(arJson, {{"initiator", lrInitiator.mName},
                      {"target", lrTarget.mName},
                      {"array", lrTarget.mArray},
                      {"controller", lrTarget.mController},
                      {"initiator_switch_port", lrInitiator.mSwitchPort},
                      {"target_switch_port", lrTarget.mSwitchPort}});
    arJson.endObject();
    arJson.key("incident");
    acrPlace.mIncident != 0 ? arJson.number(acrPlace.mIncident) : arJson.null();
}

void putLoss(ZTCJsonWriter& arJson, const ZTSLoss& acrLoss, std::string_view aHost) {
    arJson.key("first");
    putTime(arJson, toSensorTime(acrLoss.mFirst));
    arJson.key("last");
    putTime(arJson, toSensorTime(acrLoss.mLast));
    arJson.key("host");
    arJson.escapedTextOrNull(aHost);
    arJson.key("source");
    arJson.escapedText(acrLoss.mSource);
    arJson.key("reason");
    arJson.escapedText(acrLoss.mReason);
    arJson.key("events");
    sPutNumber(arJson, acrLoss.mEvents);
    arJson.key("at_most");
    sPutNumber(arJson, acrLoss.mAtMost);
}

void putChange(ZTCJsonWriter& arJson, const ZTSChange& acrChange, const ZTPortLabels& acrLabels,
               std::string_view aHost) {
    arJson.key("time");
    putTime(arJson, toSensorTime(acrChange.mTime));
    arJson.key("host");
    arJson.escapedTextOrNull(aHost);
    putTexts(arJson, {{"what", acrChange.mWhat},
                      {"name", acrChange.mName},
                      {"event", acrChange.mEvent},
                      {"attribute", acrChange.mAttribute},
                      {"before", acrChange.mBefore},
                      {"after", acrChange.mAfter}});
    arJson.key("ports");
    putPorts(arJson, listPortsIn(acrChange.mName), acrLabels);
}

void putNumber(ZTCJsonWriter& arJson, const char* apKey, std::uint64_t aNumber) {
    arJson.key(apKey);
    arJson.number(aNumber);
}

void putList(ZTCJsonWriter& arJson, const char* apKey, const std::vector<std::string>& acrTexts) {
    arJson.key(apKey);
    arJson.beginList();
    for (const std::string& lrText : acrTexts) {
        arJson.escapedText(lrText);
    }
    arJson.endList();
}

void putMoment(ZTCJsonWriter& arJson, const char* apKey, ZTNanoseconds aTime) {
    arJson.key(apKey);
    aTime != 0 ? putTime(arJson, toSensorTime(aTime)) : arJson.null();
}
