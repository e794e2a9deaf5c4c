// What was measured over time: sums by minute and hour, of a LUN's path, or of all that share a port.
#include <algorithm>
#include <array>
#include <map>

#include "MeasureSums.h"
#include "RecordJson.h"
#include "TimeText.h"
#include "ViewJson.h"
#include "WebBins.h"
#include "WebRoutes.h"

namespace {

constexpr std::uint64_t sMostRows = 400'000;
constexpr std::uint64_t sNoLimit = std::uint64_t{1} << 40;
constexpr std::size_t sMostValues = 1'000'000;  // of an answer

// What of those that a measure is of tells one from another.
enum class By { Lun, Target, Initiator };
constexpr std::string_view sBys[] = {"lun", "target", "initiator"};

By sByOf(const ZTSWebRequest& acrRequest) {
    return static_cast<By>(std::ranges::find(sBys, choiceOf(acrRequest, "by", sBys)) - std::begin(sBys));
}

ZTSMeasured sGroupOf(const ZTSMeasured& acrWhose, By aBy) {
    return {acrWhose.mInitiator, aBy == By::Initiator ? ZTSWwn() : acrWhose.mRemote,
            aBy == By::Lun ? acrWhose.mLun : ""};
}

// Adds up what was measured.
class Measuring {
  public:
    struct Key {
        std::string mName;
        ZTSMeasured mWhose;

        auto operator<=>(const Key&) const = default;
    };
    using Values = std::map<Key, std::vector<std::uint64_t>>;

    Measuring(ZTCStoreReader& arReader, const ZTSHistoryFilter& acrFilter,
              const std::vector<std::string>& acrNames, By aBy)
        : mrReader(arReader) {
        const auto lIsIn = [](const auto& acrAll, const auto& acrOne) {
            return acrAll.empty() || std::ranges::find(acrAll, acrOne) != acrAll.end();
        };
        for (const ZTSMeasuredRow& lrRow : readMeasured(arReader)) {
            if (lIsIn(acrFilter.mInitiators, lrRow.mWhose.mInitiator) &&
                lIsIn(acrFilter.mTargets, lrRow.mWhose.mRemote)) {
                const ZTSMeasured& lrGroup = *mGroups.insert(sGroupOf(lrRow.mWhose, aBy)).first;
                mGroupOf.emplace(lrRow.mId, &lrGroup);
            }
        }
        for (const auto& [lId, lrName] : readMeasureNames(arReader)) {
            if (lIsIn(acrNames, lrName)) {
                mNames.emplace(lId, lrName);
            }
        }
    }

    /// Says which bins there are: no more than can be sent.
    Values read(ZTSWebSpan aSpan, ZTSWebBins& arBins) const {
        const std::size_t lLists = mGroups.size() * mNames.size();
        aSpan.mMost = std::min<std::uint64_t>(aSpan.mMost, sMostValues / std::max<std::size_t>(lLists, 1));
        arBins = chooseWebBins(aSpan, ZTWebMinute);
        Values lValues;
        if (arBins.mWidth >= ZTWebHour || !add(ZTEStoreBin::Minute, sMostRows, arBins, lValues)) {
            lValues.clear();
            arBins = chooseWebBins(aSpan, ZTWebHour);
            add(ZTEStoreBin::Hour, sNoLimit, arBins, lValues);
        }
        return lValues;
    }

  private:
    bool add(ZTEStoreBin aBin, std::uint64_t aMost, const ZTSWebBins& acrBins, Values& arValues) const {
        struct List {
            std::vector<std::uint64_t>* mpValues = nullptr;
            bool mIsMost = false;
        };
        std::map<std::pair<std::int64_t, std::int64_t>, List> lLists;
        return readMeasureSums(
            mrReader, aBin, {acrBins.mFrom, acrBins.getEnd(), aMost},
            [&](std::int64_t aTime, std::int64_t aMeasured, std::int64_t aMeasure, std::uint64_t aValue) {
                const auto lGroup = mGroupOf.find(aMeasured);
                const auto lName = mNames.find(aMeasure);
                if (lGroup == mGroupOf.end() || lName == mNames.end()) {
                    return;
                }
                List& lrList = lLists[{aMeasured, aMeasure}];
                if (lrList.mpValues == nullptr) {
                    const ZTSMeasureFacts* const lpFacts = findMeasure(lName->second);
                    lrList = {&arValues[{lName->second, *lGroup->second}],
                              lpFacts != nullptr && lpFacts->mSum == ZTEMeasureSum::Most};
                    lrList.mpValues->resize(acrBins.mCount);
                }
                std::uint64_t& lrValue = (*lrList.mpValues)[acrBins.at(aTime)];
                lrValue = lrList.mIsMost ? std::max(lrValue, aValue) : lrValue + aValue;
            });
    }

    ZTCStoreReader& mrReader;
    std::set<ZTSMeasured> mGroups;
    std::unordered_map<std::int64_t, const ZTSMeasured*> mGroupOf;  ///< of rows of the table measured
    std::unordered_map<std::int64_t, std::string> mNames;
};

void sPutMeasure(ZTCJsonWriter& arJson, const Measuring::Key& acrKey,
                 const std::vector<std::uint64_t>& acrValues, const ZTPortLabels& acrLabels) {
    const auto lPut = [&](const char* apName, const ZTSWwn& acrPort) {
        arJson.key(apName);
        putPort(arJson, acrPort != ZTSWwn() ? std::optional(acrPort) : std::nullopt, acrLabels);
    };
    arJson.beginObject();
    putTexts(arJson, {{"name", acrKey.mName}});
    lPut("initiator", acrKey.mWhose.mInitiator);
    lPut("target", acrKey.mWhose.mRemote);
    putTexts(arJson, {{"lun", acrKey.mWhose.mLun}});
    arJson.key("values");
    arJson.beginList();
    for (const std::uint64_t lValue : acrValues) {
        arJson.number(lValue);
    }
    arJson.endList();
    arJson.endObject();
}

}  // namespace

ZTSWebAnswer answerMeasures(ZTCWebHistory& arHistory, const ZTSWebRequest& acrRequest) {
    const ZTNanoseconds lNow = toNanoseconds(toSensorTime(std::chrono::system_clock::now()));
    const By lBy = sByOf(acrRequest);
    ZTCStoreReader& lrReader = arHistory.getReader();
    const ZTSHistoryFilter lFilter = makeRecordQuery(historyAskOf(acrRequest), lrReader, lNow, true).mFilter;
    ZTSWebBins lBins;
    const Measuring::Values lValues = Measuring(lrReader, lFilter, textsOf(acrRequest, "name"), lBy)
                                          .read(webSpanOf(acrRequest, lFilter, lNow), lBins);
    const ZTPortLabels lLabels = lrReader.readLabels();

    std::string lText;
    ZTCJsonWriter lJson(lText);
    lJson.beginObject();
    putHead(lJson, "measures");
    putTexts(lJson, {{"host", lrReader.getHost()}});
    putWebBins(lJson, lBins);
    lJson.key("measures");
    lJson.beginList();
    for (const auto& [lrKey, lrValues] : lValues) {
        sPutMeasure(lJson, lrKey, lrValues, lLabels);
    }
    lJson.endList();
    lJson.endObject();
    return answerJson(std::move(lText += '\n'));
}
