// Answers that are lists of what the history has, the newest first.
#pragma once

#include <algorithm>
#include <functional>

#include "HistoryItems.h"
#include "HistoryQuery.h"
#include "TimeScan.h"
#include "ViewJson.h"
#include "WebRoutes.h"

/// What a request means of the history, and what stands with each item of the answer.
struct ZTSWebView {
    ZTSHistoryQuery mQuery;
    ZTSHistoryFrame mFrame;
};
/// Throws what readers and requests throw.
ZTSWebView readWebView(ZTCStoreReader& arReader, const ZTSWebRequest& acrRequest);

/// The first members of a list's document; the list is begun.
void beginWebList(ZTCJsonWriter& arJson, const char* apName, const ZTSHistoryFrame& acrFrame);

inline constexpr std::uint64_t ZTWebLimit = 1000;  ///< of the items of one answer
inline constexpr std::uint64_t ZTWebUsual = 200;   ///< where a request does not say how many
/// Behind so many bytes a list ends, however many items it may have: several answers are in memory at once.
inline constexpr std::size_t ZTWebBytes = std::size_t{2} << 20;

/// The newest ones that are meant of a request's time: {"host", NAME: [...], "more"}.
template <class Item, class IsMeant>
ZTSWebAnswer answerNewest(ZTCWebHistory& arHistory, const ZTSWebRequest& acrRequest, const char* apName,
                          const IsMeant& acrIsMeant) {
    constexpr std::size_t lPiece = 256;
    const std::size_t lLimit = numberOf(acrRequest, "limit", ZTWebUsual, ZTWebLimit);
    ZTCStoreReader& lrReader = arHistory.getReader();
    const ZTSWebView lView = readWebView(lrReader, acrRequest);
    ZTCTimeScan<Item> lScan(lrReader, lView.mQuery.mFilter, lrReader.readPlace(),
                            ZTCTimeScan<Item>::Order::NewestFirst);
    std::vector<Item> lItems;
    for (bool lIsMore = true; lIsMore && lItems.size() <= lLimit;) {
        const std::size_t lBefore = lItems.size();
        lIsMore = lScan.read(lItems, lPiece);
        lItems.erase(std::remove_if(lItems.begin() + static_cast<std::ptrdiff_t>(lBefore), lItems.end(),
                                    std::not_fn(acrIsMeant)),
                     lItems.end());
    }
    std::string lText;
    ZTCJsonWriter lJson(lText);
    lJson.beginObject();
    beginWebList(lJson, apName, lView.mFrame);
    std::size_t lCount = 0;
    for (; lCount < std::min(lItems.size(), lLimit) && lText.size() < ZTWebBytes; ++lCount) {
        lJson.beginObject();
        putStored(lJson, lItems[lCount], lView.mFrame);
        lJson.endObject();
    }
    lJson.endList();
    lJson.key("more");
    lJson.boolean(lCount < lItems.size());
    lJson.endObject();
    return answerJson(std::move(lText += '\n'));
}
