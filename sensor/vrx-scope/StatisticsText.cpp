#include "StatisticsText.h"

#include <fmt/format.h>

#include <algorithm>

#include "RecordText.h"
#include "Table.h"

namespace {

constexpr std::uint64_t sKiB = 1024;
constexpr std::chrono::seconds sLong(10);

std::string sTableOf(const ZTSStatisticsTaken& acrTaken) {
    std::vector<ZTSColumn> lColumns{{"name"}, {"value", true}};
    if (acrTaken.mSeconds) {
        lColumns.push_back({"a second", true});
    }
    ZTCTable lTable(lColumns);
    for (std::size_t lRow = 0; lRow < acrTaken.mNow.mRows.size(); ++lRow) {
        const ZTSStatistic& lrRow = acrTaken.mNow.mRows[lRow];
        std::vector<std::string> lCells{lrRow.mName, std::to_string(lrRow.mValue)};
        if (acrTaken.mSeconds) {
            const auto lRate = acrTaken.rateOf(lRow);
            lCells.push_back(lRate ? fmt::format("{:.1f}", *lRate) : "-");
        }
        lTable.add(std::move(lCells));
    }
    return lTable.toText();
}

}  // namespace

std::optional<double> ZTSStatisticsTaken::rateOf(std::size_t aRow) const {
    const ZTSStatistic& lrRow = mNow.mRows.at(aRow);
    if (!mSeconds || *mSeconds <= 0 || !lrRow.isCounter()) {
        return {};
    }
    const std::uint64_t lBefore = aRow < mBefore.mRows.size() ? mBefore.mRows[aRow].mValue : 0;
    if (lrRow.mValue < lBefore) {
        return {};
    }
    return static_cast<double>(lrRow.mValue - lBefore) / *mSeconds;
}

std::string statisticsText(const ZTSStatisticsTaken& acrTaken,
                           const std::optional<ZTSStatisticsTaken>& acrOfLibrary) {
    return sTableOf(acrTaken) + (acrOfLibrary ? "\nlibdfc-fchost\n" + sTableOf(*acrOfLibrary) : "");
}

std::vector<ZTSLabelled> labelledIn(const ZTSStatistics& acrStatistics, const std::string& acrName) {
    std::vector<ZTSLabelled> lRows;
    for (const ZTSStatistic& lrRow : acrStatistics.mRows) {
        const std::size_t lFrom = lrRow.mName.find('"') + 1;
        if (lrRow.mName.starts_with(acrName + "{") && lFrom != 0) {
            lRows.push_back({lrRow.mName.substr(lFrom, lrRow.mName.rfind('"') - lFrom), lrRow.mValue});
        }
    }
    return lRows;
}

std::string heldText(const ZTSStatistics& acrStatistics) {
    const auto lInKiB = [&](const char* apName) {
        return (acrStatistics.get(apName).value_or(0) + sKiB - 1) / sKiB;
    };
    return fmt::format("{}, {} of {} KiB", countText(acrStatistics.get("held_events").value_or(0), "event"),
                       lInKiB("held_bytes"), lInKiB("held_bytes_limit"));
}

std::optional<ZTSLabelled> findLibraryCall(const ZTSStatistics& acrStatistics) {
    std::optional<ZTSLabelled> lOldest;
    for (const ZTSLabelled& lrCall : labelledIn(acrStatistics, "library_call_since_ns")) {
        if (lrCall.mValue != 0 && (!lOldest || lrCall.mValue < lOldest->mValue)) {
            lOldest = lrCall;
        }
    }
    return lOldest;
}

std::string libraryText(const ZTSStatistics& acrStatistics) {
    const auto lCall = findLibraryCall(acrStatistics);
    if (!lCall) {
        return {};
    }
    const auto lSince = std::chrono::nanoseconds(static_cast<std::int64_t>(lCall->mValue));
    const auto lTime = std::chrono::system_clock::now().time_since_epoch() - lSince;
    if (lTime < sLong) {
        return {};
    }
    return fmt::format("inside the vendor library's {} for {} s", lCall->mLabel,
                       std::chrono::duration_cast<std::chrono::seconds>(lTime).count());
}
