#include "Json.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "TimeText.h"

namespace {

using ZTJson = nlohmann::ordered_json;

constexpr int sSchema = 1;
constexpr int sIndent = 2;

ZTJson textOrNull(const std::string& acrText) {
    return acrText.empty() ? ZTJson() : ZTJson(acrText);
}

ZTJson timeOrNull(const std::optional<ZTSAgentStatus::Time>& acrTime) {
    return acrTime ? textOrNull(isoText(toSensorTime(*acrTime))) : ZTJson();
}

ZTJson namesOf(const ZTSPortNames& acrNames) {
    return {{"node_name", acrNames.mNode.toText()}, {"port_name", acrNames.mPort.toText()}};
}

ZTJson fieldsToJson(const ZTEventGroup& acrFields);

struct ValueToJson {
    ZTJson operator()(std::monostate) const { return {}; }
    ZTJson operator()(std::uint32_t aNumber) const { return aNumber; }
    ZTJson operator()(const ZTSWwn& acrName) const { return acrName.toText(); }
    ZTJson operator()(const std::string& acrText) const { return acrText; }
    ZTJson operator()(const std::vector<std::uint32_t>& acrValues) const { return acrValues; }
    ZTJson operator()(const std::vector<ZTEventGroup>& acrGroups) const {
        ZTJson lList = ZTJson::array();
        for (const ZTEventGroup& lrGroup : acrGroups) {
            lList.push_back(fieldsToJson(lrGroup));
        }
        return lList;
    }
};

ZTJson fieldsToJson(const ZTEventGroup& acrFields) {
    ZTJson lObject = ZTJson::object();
    for (const ZTSEventField& lrField : acrFields) {
        lObject[lrField.mpName] = std::visit(ValueToJson(), lrField.mValue);
    }
    return lObject;
}

std::string digitsOf(const ZTSensorBytes& acrBytes) {
    constexpr char lDigits[] = "0123456789abcdef";
    std::string lText;
    for (const std::uint8_t lByte : acrBytes) {
        lText += lDigits[lByte >> 4];
        lText += lDigits[lByte & 15];
    }
    return lText;
}

// Over several lines, or on one. In ASCII, so that a terminal acts on nothing in it.
std::string dump(const ZTJson& acrJson, int aIndent = -1) {
    return acrJson.dump(aIndent, ' ', true, ZTJson::error_handler_t::replace) + "\n";
}

ZTJson makeDocument(const std::string& acrCommand) {
    return {{"schema", sSchema}, {"command", acrCommand}};
}

ZTJson toJson(const ZTSPortNames& acrInitiator, const ZTSSensorRecord& acrRecord) {
    const char* const lpKind = findEventKind(acrRecord.mCategory, acrRecord.mSubcategory);
    const auto lFields = fieldsOf(acrRecord);
    ZTJson lObject;
    lObject["initiator"] = namesOf(acrInitiator);
    lObject["kind"] = lpKind != nullptr ? ZTJson(lpKind) : ZTJson();
    lObject["category"] = acrRecord.mCategory;
    lObject["subcategory"] = acrRecord.mSubcategory;
    lObject["occurrences"] = acrRecord.mOccurrences;
    lObject["first"] = textOrNull(isoText(acrRecord.mFirst));
    lObject["last"] = textOrNull(isoText(acrRecord.mLast));
    lObject["target"] = acrRecord.mTarget ? namesOf(*acrRecord.mTarget) : ZTJson();
    lObject["event"] = lFields ? fieldsToJson(*lFields) : ZTJson();
    lObject["data"] = digitsOf(acrRecord.mData);
    return lObject;
}

}  // namespace

std::string doneJson(const std::string& acrCommand) {
    ZTJson lDocument = makeDocument(acrCommand);
    lDocument["done"] = true;
    return dump(lDocument);
}

std::string recordLines(const std::string& acrCommand, const ZTSFetched& acrFetched) {
    std::string lText;
    for (const ZTSSensorRecordList& lrList : acrFetched.mData) {
        for (const ZTSSensorRecord& lrRecord : lrList.mRecords) {
            ZTJson lLine = makeDocument(acrCommand);
            lLine.update(toJson(lrList.mInitiator, lrRecord));
            lText += dump(lLine);
        }
    }
    return lText;
}

std::string fetchedJson(const std::string& acrCommand, const ZTSFetched& acrFetched) {
    ZTJson lDocument = makeDocument(acrCommand);
    lDocument["fetched"] = timeOrNull(acrFetched.mTime);
    lDocument["initiators"] = ZTJson::array();
    lDocument["records"] = ZTJson::array();
    for (const ZTSSensorRecordList& lrList : acrFetched.mData) {
        if (const ZTJson lNames = namesOf(lrList.mInitiator);
            std::find(lDocument["initiators"].begin(), lDocument["initiators"].end(), lNames) ==
            lDocument["initiators"].end()) {
            lDocument["initiators"].push_back(lNames);
        }
        for (const ZTSSensorRecord& lrRecord : lrList.mRecords) {
            lDocument["records"].push_back(toJson(lrList.mInitiator, lrRecord));
        }
    }
    return dump(lDocument, sIndent);
}

std::string statusJson(const std::string& acrDirectory, const ZTSAgentStatus& acrStatus) {
    ZTJson lDocument = makeDocument("status");
    lDocument["directory"] = acrDirectory;
    lDocument["running"] = acrStatus.mIsRunning;
    lDocument["pid"] = acrStatus.mProcess != 0 ? ZTJson(acrStatus.mProcess) : ZTJson();
    lDocument["since"] = timeOrNull(acrStatus.mSince);
    lDocument["log"] = textOrNull(acrStatus.mLog);
    lDocument["heartbeat"] = timeOrNull(acrStatus.mHeartbeat);
    lDocument["sensor"] = ZTJson();
    if (acrStatus.mSensorHeartbeat) {
        lDocument["sensor"] = {{"pid", acrStatus.mSensor != 0 ? ZTJson(acrStatus.mSensor) : ZTJson()},
                               {"running", acrStatus.mIsSensorRunning},
                               {"heartbeat", timeOrNull(acrStatus.mSensorHeartbeat)}};
    }
    return dump(lDocument);
}
