#include "WebBins.h"

#include <fmt/format.h>

#include "RecordJson.h"

namespace {

constexpr std::int64_t sWidths[] = {10, 60, 300, 900, 3600, 21600, 86400};
constexpr std::int64_t sDay = 86400;
constexpr std::uint64_t sUsual = 1000;
constexpr std::uint64_t sMost = 4096;
constexpr std::int64_t sLastTime = 9'223'200'000;  // in 2262; behind it nanoseconds have no numbers

std::int64_t sFloor(std::int64_t aTime, std::int64_t aWidth) {
    return aTime / aWidth * aWidth;
}
std::int64_t sCeiling(std::int64_t aTime, std::int64_t aWidth) {
    return sFloor(aTime + aWidth - 1, aWidth);
}

ZTSWebBins sBinsOf(const ZTSWebSpan& acrSpan, std::int64_t aWidth) {
    const std::int64_t lFrom = sFloor(acrSpan.mFrom, aWidth);
    return {lFrom, aWidth, static_cast<std::size_t>((sCeiling(acrSpan.mTo, aWidth) - lFrom) / aWidth)};
}

}  // namespace

ZTSWebSpan webSpanOf(const ZTSWebRequest& acrRequest, const ZTSHistoryFilter& acrFilter, ZTNanoseconds aNow) {
    const ZTNanoseconds lUntil = textOf(acrRequest, "until").empty() ? aNow : acrFilter.mUntil;
    const ZTNanoseconds lSince = textOf(acrRequest, "since").empty()
                                     ? std::max<ZTNanoseconds>(lUntil - sDay * ZTSecond, 0)
                                     : acrFilter.mSince;
    if (lSince > lUntil) {
        throw ZTCWebRefusal("since is after until: nothing lies between them");
    }
    const std::int64_t lFrom = std::min(lSince / ZTSecond, sLastTime);
    const std::int64_t lTo = std::min(lUntil / ZTSecond + (lUntil % ZTSecond != 0 ? 1 : 0), sLastTime);
    return {lFrom, std::max(lTo, lFrom + 1), numberOf(acrRequest, "bins", sUsual, sMost)};
}

ZTSWebBins chooseWebBins(const ZTSWebSpan& acrSpan, std::int64_t aLeast) {
    for (const std::int64_t lWidth : sWidths) {
        const ZTSWebBins lBins = sBinsOf(acrSpan, lWidth);
        if (lWidth >= aLeast && lBins.mCount <= acrSpan.mMost) {
            return lBins;
        }
    }
    throw ZTCWebRefusal(
        fmt::format("since and until lie {} days apart, and bins is {}: a bin is a day at most",
                    sBinsOf(acrSpan, sDay).mCount, acrSpan.mMost));
}

void putWebBins(ZTCJsonWriter& arJson, const ZTSWebBins& acrBins) {
    arJson.key("since");
    putTime(arJson, toSensorTime(acrBins.mFrom * ZTSecond));
    arJson.key("until");
    putTime(arJson, toSensorTime(acrBins.getEnd() * ZTSecond));
    arJson.key("bin_seconds");
    arJson.number(static_cast<std::uint64_t>(acrBins.mWidth));
}
