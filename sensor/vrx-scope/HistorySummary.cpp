#include "HistorySummary.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>

#include "Failure.h"
#include "HistoryQuery.h"
#include "Json.h"
#include "LossText.h"
#include "PortText.h"
#include "RecordJson.h"
#include "RecordText.h"
#include "Table.h"
#include "TimeScan.h"
#include "TimeText.h"

namespace {

struct Sum {
    std::string mKey;  // a kind, or a port's number
    std::optional<ZTSWwn> mPort{};
    std::uint64_t mEvents = 0;
    std::uint64_t mRecords = 0;
    ZTNanoseconds mFirst = std::numeric_limits<ZTNanoseconds>::max();
    ZTNanoseconds mLast = 0;

    void add(const ZTSStoredSeries& acrSeries) {
        mEvents += acrSeries.mEvents;
        mRecords += acrSeries.mRecords;
        mFirst = std::min(mFirst, acrSeries.mFirst);
        mLast = std::max(mLast, acrSeries.mLast);
    }
};

struct Lost {
    std::uint64_t mEvents = 0;
    std::uint64_t mUnknown = 0;  // times that nobody knows how many
};

struct Summary {
    std::string mHost;
    ZTPortLabels mLabels;
    Sum mAll{};
    Lost mLost;
    // Each with its sums, the largest first.
    std::vector<std::pair<const char*, std::vector<Sum>>> mBy;
};

// What the series have of the filter's time: of all time the store knows it, of less its records are summed.
std::vector<ZTSStoredSeries> sSumSeries(ZTCStoreReader& arReader, const ZTSHistoryFilter& acrFilter,
                                        const ZTSStorePlace& acrPlace, bool aIsOfAllTime) {
    std::vector<ZTSStoredSeries> lAll = arReader.readSeries();
    if (aIsOfAllTime) {
        std::erase_if(lAll,
                      [&](const ZTSStoredSeries& acrSeries) { return !acrFilter.takes(acrSeries.mSeries); });
        return lAll;
    }
    std::map<ZTSSeries, ZTSStoredSeries> lSums;
    ZTCRecordScan lScan(arReader, acrFilter, acrPlace, ZTCRecordScan::Order::OldestFirst, false);
    for (bool lIsMore = true; lIsMore;) {
        std::vector<ZTSStoredRecord> lRecords;
        lIsMore = lScan.read(lRecords);
        for (const ZTSStoredRecord& lrRecord : lRecords) {
            const ZTSRecord& lrIt = lrRecord.mRecord;
            const auto [lAt, lIsNew] =
                lSums.try_emplace(lrIt.mSeries, ZTSStoredSeries{0, lrIt.mSeries, 0, 0, lrIt.mFirst, 0});
            lAt->second.mEvents += lrIt.mOccurrences;
            lAt->second.mRecords += 1;
            lAt->second.mLast = std::max(lAt->second.mLast, lrIt.mLast);
        }
    }
    lAll.clear();
    for (auto& [lrKey, lrSum] : lSums) {
        lAll.push_back(std::move(lrSum));
    }
    return lAll;
}

Lost sSumLosses(ZTCStoreReader& arReader, const ZTSHistoryFilter& acrFilter, const ZTSStorePlace& acrPlace,
                bool aIsOfAllTime) {
    Lost lLost;
    if (aIsOfAllTime) {
        for (const ZTSLossTotal& lrTotal : arReader.readLossTotals()) {
            lLost.mEvents += lrTotal.mEvents;
            lLost.mUnknown += lrTotal.mUnknown;
        }
        return lLost;
    }
    ZTCLossScan lScan(arReader, acrFilter, acrPlace);
    for (bool lIsMore = true; lIsMore;) {
        std::vector<ZTSLoss> lLosses;
        lIsMore = lScan.read(lLosses);
        for (const ZTSLoss& lrLoss : lLosses) {
            lLost.mEvents += lrLoss.mEvents.value_or(0);
            lLost.mUnknown += lrLoss.mEvents ? 0 : 1;
        }
    }
    return lLost;
}

std::string sKindOf(const ZTSSeries& acrSeries) {
    ZTSSensorRecord lKind;
    lKind.mCategory = acrSeries.mCategory;
    lKind.mSubcategory = acrSeries.mSubcategory;
    return kindText(lKind);
}

template <class Key>
std::vector<Sum> sSumBy(const std::vector<ZTSStoredSeries>& acrSeries, const Key& acrKey) {
    std::map<std::string, Sum> lSums;
    for (const ZTSStoredSeries& lrSeries : acrSeries) {
        const std::string lKey = acrKey(lrSeries.mSeries);
        if (!lKey.empty()) {
            lSums[lKey].add(lrSeries);
        }
    }
    std::vector<Sum> lSorted;
    for (auto& [lrKey, lrSum] : lSums) {
        lrSum.mKey = lrKey;
        lrSum.mPort = ZTSWwn::fromText(lrKey);
        lSorted.push_back(std::move(lrSum));
    }
    std::stable_sort(lSorted.begin(), lSorted.end(), [](const Sum& acrLeft, const Sum& acrRight) {
        return acrLeft.mEvents > acrRight.mEvents;
    });
    return lSorted;
}

Summary sSummarize(const ZTSScopeOptions& acrOptions) {
    ZTCStoreReader lReader(acrOptions.mHistory.mStore);
    const ZTSHistoryQuery lQuery =
        makeQuery(acrOptions.mHistory, lReader, toNanoseconds(toSensorTime(std::chrono::system_clock::now())),
                  acrOptions.mInUtc);
    const ZTSHistoryFilter& lrFilter = lQuery.mFilter;
    if (!lQuery.mTakesRecords) {
        throw ZTCScopeUsage("--summary is of events: FPINs and stalls are none");
    }
    const bool lIsOfAllTime = acrOptions.mHistory.mSince.empty() && acrOptions.mHistory.mUntil.empty();
    const ZTSStorePlace lPlace = lReader.readPlace();
    const auto lSeries = sSumSeries(lReader, lrFilter, lPlace, lIsOfAllTime);
    Summary lSummary;
    lSummary.mLabels = lReader.readLabels();
    lSummary.mHost = lReader.getHost();
    lSummary.mLost = sSumLosses(lReader, lrFilter, lPlace, lIsOfAllTime);
    for (const ZTSStoredSeries& lrSeries : lSeries) {
        lSummary.mAll.add(lrSeries);
    }
    lSummary.mBy = {
        {"kind", sSumBy(lSeries, sKindOf)},
        {"initiator",
         sSumBy(lSeries, [](const ZTSSeries& acrSeries) { return acrSeries.mInitiator.mPort.toText(); })},
        {"target", sSumBy(lSeries, [](const ZTSSeries& acrSeries) {
             return acrSeries.mRemote ? acrSeries.mRemote->toText() : "";
         })}};
    return lSummary;
}

std::string sTextOf(const Summary& acrSummary, bool aInUtc) {
    std::string lText =
        fmt::format("{} event{} in {} record{}", groupedText(acrSummary.mAll.mEvents),
                    acrSummary.mAll.mEvents == 1 ? "" : "s", groupedText(acrSummary.mAll.mRecords),
                    acrSummary.mAll.mRecords == 1 ? "" : "s");
    lText +=
        acrSummary.mLost.mEvents != 0 ? fmt::format(", {} lost", groupedText(acrSummary.mLost.mEvents)) : "";
    if (const std::uint64_t lTimes = acrSummary.mLost.mUnknown; lTimes != 0) {
        lText += ", an unknown number lost " + (lTimes == 1 ? "once" : groupedText(lTimes) + " times");
    }
    lText += "\n";
    for (const auto& [lpAxis, lrSums] : acrSummary.mBy) {
        if (lrSums.empty()) {
            continue;
        }
        ZTCTable lTable({{lpAxis}, {"events", true}, {"records", true}, {"first"}, {"last"}});
        for (const Sum& lrSum : lrSums) {
            const ZTSSensorTime lFirst = toSensorTime(lrSum.mFirst);
            lTable.add({lrSum.mPort ? portText(acrSummary.mLabels, lrSum.mPort) : lrSum.mKey,
                        groupedText(lrSum.mEvents), groupedText(lrSum.mRecords), plainText(lFirst, aInUtc),
                        plainTextBehind(toSensorTime(lrSum.mLast), lFirst, aInUtc)});
        }
        lText += "\n" + lTable.toText();
    }
    return lText;
}

void sPutSum(ZTCJsonWriter& arJson, const Sum& acrSum) {
    arJson.key("events");
    arJson.number(acrSum.mEvents);
    arJson.key("records");
    arJson.number(acrSum.mRecords);
    const bool lAreAny = acrSum.mRecords != 0;
    arJson.key("first");
    arJson.textOrNull(lAreAny ? isoText(toSensorTime(acrSum.mFirst)) : "");
    arJson.key("last");
    arJson.textOrNull(lAreAny ? isoText(toSensorTime(acrSum.mLast)) : "");
}

std::string sJsonOf(const Summary& acrSummary) {
    std::string lText;
    ZTCJsonWriter lJson(lText);
    lJson.beginObject();
    putHead(lJson, "history");
    lJson.key("host");
    lJson.escapedTextOrNull(acrSummary.mHost);
    sPutSum(lJson, acrSummary.mAll);
    lJson.key("lost");
    lJson.number(acrSummary.mLost.mEvents);
    lJson.key("lost_unknown");
    lJson.number(acrSummary.mLost.mUnknown);
    for (const auto& [lpAxis, lrSums] : acrSummary.mBy) {
        const std::string lAxis = lpAxis;
        lJson.key(lAxis + "s");
        lJson.beginList();
        for (const Sum& lrSum : lrSums) {
            lJson.beginObject();
            lJson.key(lAxis == "kind" ? "kind" : "port_name");
            lJson.text(lrSum.mKey);
            if (lrSum.mPort) {
                putLabel(lJson, *lrSum.mPort, acrSummary.mLabels);
            }
            sPutSum(lJson, lrSum);
            lJson.endObject();
        }
        lJson.endList();
    }
    lJson.endObject();
    return lText + "\n";
}

}  // namespace

std::string summaryText(const ZTSScopeOptions& acrOptions) {
    const Summary lSummary = sSummarize(acrOptions);
    return acrOptions.getForm() == ZTEScopeForm::Table ? sTextOf(lSummary, acrOptions.mInUtc)
                                                       : sJsonOf(lSummary);
}
