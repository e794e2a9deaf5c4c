#include "WebEventId.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>

namespace {

constexpr std::size_t sParts = 6;
constexpr int sHex = 16;

}  // namespace

std::uint32_t shortStoreId(const std::string& acrUuid) {
    std::uint32_t lId = 0;
    std::from_chars(acrUuid.data(), acrUuid.data() + acrUuid.size(), lId, sHex);
    return lId;
}

std::string ZTSWebEventId::toText() const {
    return fmt::format("{:x}-{:x}-{:x}-{:x}-{:x}-{:x}", mStore, mClosedTo, mLast, mSeconds, mRun, mNumber);
}

std::optional<ZTSWebEventId> ZTSWebEventId::fromText(std::string_view aText) {
    std::uint64_t lParts[sParts] = {};
    const char* lpAt = aText.data();
    const char* const lpEnd = lpAt + aText.size();
    for (std::uint64_t& lrPart : lParts) {
        const bool lIsFirst = &lrPart == lParts;
        if (!lIsFirst && (lpAt == lpEnd || *lpAt++ != '-')) {
            return {};
        }
        const auto [lpBehind, lError] = std::from_chars(lpAt, lpEnd, lrPart, sHex);
        constexpr auto lMost = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
        if (lError != std::errc() ||
            lrPart > (lIsFirst ? std::numeric_limits<std::uint32_t>::max() : lMost)) {
            return {};
        }
        lpAt = lpBehind;
    }
    if (lpAt != lpEnd) {
        return {};
    }
    return ZTSWebEventId{
        static_cast<std::uint32_t>(lParts[0]), lParts[1], lParts[2], lParts[3], lParts[4], lParts[5]};
}

void ZTSWebEventId::pass(const ZTSStoredRecord& acrRecord) {
    mClosedTo = acrRecord.mIsOpen ? mClosedTo : std::max(mClosedTo, acrRecord.mId);
    mLast = std::max(mLast, acrRecord.mId);
}

ZTSStorePlace ZTSWebEventId::toPlace(ZTSStorePlace aNow) const {
    aNow.mClosedTo = mClosedTo;
    aNow.mLastRecord = mLast;
    aNow.mOpenStalls.clear();
    return aNow;
}
