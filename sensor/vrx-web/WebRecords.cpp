#include <fmt/format.h>

#include <charconv>
#include <chrono>

#include "IncidentLookup.h"
#include "Incidents.h"
#include "RecordScan.h"
#include "WebCsv.h"
#include "WebLists.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::uint64_t sUsual = 100;
// So long is looked for the records of one page: few that are meant may lie among very many.
constexpr std::chrono::seconds sLookFor(2);
constexpr std::size_t sBytesBeside = 1024;  // of a record's text, beside its block's digits
constexpr std::string_view sFormats[] = {"json", "ndjson", "csv"};

std::string sCursorText(const ZTSStorePosition& acrPosition) {
    return fmt::format("{}.{}", acrPosition.mTime, acrPosition.mId);
}

std::optional<ZTSStorePosition> sReadCursor(const std::string& acrText) {
    ZTSStorePosition lPosition;
    const char* const lpEnd = acrText.data() + acrText.size();
    const auto lTime = std::from_chars(acrText.data(), lpEnd, lPosition.mTime);
    if (lTime.ec != std::errc() || lTime.ptr == lpEnd || *lTime.ptr != '.') {
        return {};
    }
    const auto lId = std::from_chars(lTime.ptr + 1, lpEnd, lPosition.mId);
    const bool lIsWhole = lId.ec == std::errc() && lId.ptr == lpEnd && lPosition.mId != 0;
    return lIsWhole ? std::optional(lPosition) : std::nullopt;
}

struct Page {
    std::vector<ZTSStoredRecord> mRecords;
    std::string mNext;  // a cursor; empty: nothing is behind it
};

class Pager {
  public:
    Pager(ZTCStoreReader& arReader, const ZTSHistoryQuery& acrQuery)
        : mrQuery(acrQuery),
          mScan(arReader, narrowed(acrQuery), arReader.readPlace(), ZTCRecordScan::Order::NewestFirst) {}

    void beginBehind(const std::string& acrCursor) {
        const auto lPosition = sReadCursor(acrCursor);
        if (!lPosition) {
            throw ZTCWebRefusal("the cursor is none that an answer has given");
        }
        if (lPosition->mTime <= mrQuery.mFilter.mUntil) {
            mScan.beginAt({lPosition->mTime, lPosition->mId - 1});
        }
    }

    Page read(std::size_t aLimit) {
        constexpr std::size_t lPiece = 256;
        Page lPage;
        std::vector<ZTSStoredRecord>& lrRecords = lPage.mRecords;
        const Clock::time_point lEnd = Clock::now() + sLookFor;
        bool lIsMore = mrQuery.mTakesRecords;
        std::size_t lFit = 0;
        while (lIsMore && lFit == lrRecords.size() && lFit <= aLimit && Clock::now() < lEnd) {
            lIsMore = mScan.read(lrRecords, lPiece);
            keepEvidence(lrRecords, lFit);
            lFit = countFitting(lrRecords, lFit);
        }
        if (const std::size_t lCount = std::min(lFit, aLimit); lCount < lrRecords.size()) {
            lrRecords.resize(lCount);
            lPage.mNext = sCursorText({lrRecords.back().mRecord.mFirst, lrRecords.back().mId});
        } else if (lIsMore) {
            lPage.mNext = sCursorText(mScan.getPosition());
        }
        return lPage;
    }

  private:
    static ZTSHistoryFilter narrowed(const ZTSHistoryQuery& acrQuery) {
        ZTSHistoryFilter lFilter = acrQuery.mFilter;
        if (acrQuery.mpEvidence) {
            acrQuery.mpEvidence->narrow(lFilter);
        }
        return lFilter;
    }

    void keepEvidence(std::vector<ZTSStoredRecord>& arRecords, std::size_t aFrom) const {
        if (!mrQuery.mpEvidence) {
            return;
        }
        arRecords.erase(
            std::remove_if(arRecords.begin() + static_cast<std::ptrdiff_t>(aFrom), arRecords.end(),
                           [&](const ZTSStoredRecord& acrRecord) {
                               return !mrQuery.mpEvidence->takes(acrRecord.mRecord);
                           }),
            arRecords.end());
    }

    // How many of them there is room for: one at least. Those before aFrom are.
    std::size_t countFitting(const std::vector<ZTSStoredRecord>& acrRecords, std::size_t aFrom) {
        std::size_t lCount = aFrom;
        for (; lCount < acrRecords.size() && (lCount == 0 || mBytes < ZTWebBytes); ++lCount) {
            mBytes += sBytesBeside + 2 * acrRecords[lCount].mRecord.mData.size();
        }
        return lCount;
    }

    const ZTSHistoryQuery& mrQuery;
    ZTCRecordScan mScan;
    std::size_t mBytes = 0;  ///< of the page as text
};

std::shared_ptr<const ZTCIncidentLookup> sReadIncidents(ZTCStoreReader& arReader, const Page& acrPage) {
    const auto lpIncidents = std::make_shared<ZTCIncidentLookup>();
    if (!acrPage.mRecords.empty()) {
        lpIncidents->read(arReader, acrPage.mRecords.back().mRecord.mFirst,
                          acrPage.mRecords.front().mRecord.mFirst);
    }
    return lpIncidents;
}

std::string sDocumentOf(const Page& acrPage, const ZTSHistoryFrame& acrFrame) {
    std::string lText;
    ZTCJsonWriter lJson(lText);
    lJson.beginObject();
    beginWebList(lJson, "records", acrFrame);
    for (const ZTSStoredRecord& lrRecord : acrPage.mRecords) {
        lJson.beginObject();
        putStored(lJson, lrRecord, acrFrame);
        lJson.endObject();
    }
    lJson.endList();
    lJson.key("next");
    lJson.textOrNull(acrPage.mNext);
    lJson.endObject();
    return lText += '\n';
}

std::string sLineOf(const ZTSStoredRecord& acrRecord, const ZTSHistoryFrame& acrFrame) {
    std::string lText;
    ZTCJsonWriter lJson(lText);
    lJson.beginObject();
    putHead(lJson, "records");
    putStored(lJson, acrRecord, acrFrame);
    lJson.endObject();
    return lText += '\n';
}

// What is saved to a file: the same page, a record a line.
ZTSWebAnswer sAnswerLines(const Page& acrPage, const ZTSHistoryFrame& acrFrame, bool aIsCsv) {
    std::string lText = aIsCsv ? webCsvHeading() : "";
    for (const ZTSStoredRecord& lrRecord : acrPage.mRecords) {
        const std::string lLine = sLineOf(lrRecord, acrFrame);
        lText += aIsCsv ? webCsvLineOf(lLine) : lLine;
    }
    ZTSWebAnswer lAnswer = answerJson(std::move(lText));
    lAnswer.mpType = aIsCsv ? "text/csv; charset=utf-8; header=present" : "application/x-ndjson";
    lAnswer.mHeaders.emplace_back(
        "Content-Disposition", fmt::format("attachment; filename=\"records.{}\"", aIsCsv ? "csv" : "ndjson"));
    if (!acrPage.mNext.empty()) {
        lAnswer.mHeaders.emplace_back("X-Next-Cursor", acrPage.mNext);
    }
    return lAnswer;
}

}  // namespace

ZTSWebAnswer answerRecords(ZTCWebHistory& arHistory, const ZTSWebRequest& acrRequest) {
    const std::string_view lFormat = choiceOf(acrRequest, "format", sFormats);
    const std::uint64_t lLimit = numberOf(acrRequest, "limit", sUsual, ZTWebLimit);
    ZTCStoreReader& lrReader = arHistory.getReader();
    ZTSWebView lView = readWebView(lrReader, acrRequest);
    if (const std::string& lrIncident = textOf(acrRequest, "incident"); !lrIncident.empty()) {
        askForIncident(followMerges(lrReader, readIncidentOf(lrReader, lrIncident)), lView.mQuery);
    }
    Pager lPager(lrReader, lView.mQuery);
    if (const std::string& lrCursor = textOf(acrRequest, "cursor"); !lrCursor.empty()) {
        lPager.beginBehind(lrCursor);
    }
    const Page lPage = lPager.read(lLimit);
    lView.mFrame.mpIncidents = sReadIncidents(lrReader, lPage);
    return lFormat == "json" ? answerJson(sDocumentOf(lPage, lView.mFrame))
                             : sAnswerLines(lPage, lView.mFrame, lFormat == "csv");
}
