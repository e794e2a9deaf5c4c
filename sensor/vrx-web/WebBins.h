// The bins that answers over time have.
#pragma once

#include "HistoryQuery.h"
#include "JsonWriter.h"
#include "WebRequest.h"

inline constexpr std::int64_t ZTWebMinute = 60;
inline constexpr std::int64_t ZTWebHour = 3600;

/// Seconds since 1970, from one to before another, and how many bins are wanted at most.
struct ZTSWebSpan {
    std::int64_t mFrom = 0;
    std::int64_t mTo = 0;
    std::uint64_t mMost = 0;
};
/// What a request asks for with since, until and bins: a day up to now, where it says nothing. Throws
/// ZTCWebRefusal.
ZTSWebSpan webSpanOf(const ZTSWebRequest& acrRequest, const ZTSHistoryFilter& acrFilter, ZTNanoseconds aNow);

/// Bins of one width, which begin at whole multiples of it.
struct ZTSWebBins {
    std::int64_t mFrom = 0;  ///< seconds since 1970
    std::int64_t mWidth = 0;
    std::size_t mCount = 0;

    std::int64_t getEnd() const { return mFrom + static_cast<std::int64_t>(mCount) * mWidth; }
    bool has(std::int64_t aTime) const { return aTime >= mFrom && aTime < getEnd(); }
    std::size_t at(std::int64_t aTime) const { return static_cast<std::size_t>((aTime - mFrom) / mWidth); }
};
/// The narrowest ones, of aLeast seconds at least, of which there are not too many. Throws ZTCWebRefusal.
ZTSWebBins chooseWebBins(const ZTSWebSpan& acrSpan, std::int64_t aLeast);

/// The members since, until and bin_seconds of an answer.
void putWebBins(ZTCJsonWriter& arJson, const ZTSWebBins& acrBins);
