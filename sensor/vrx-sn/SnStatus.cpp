#include "SnStatus.h"

#include <fmt/format.h>

#include <mutex>

#include "SnFigures.h"

namespace {

std::string sWithCommas(std::uint64_t aNumber) {
    std::string lText = std::to_string(aNumber);
    for (std::size_t lAt = lText.size(); lAt > 3;) {
        lText.insert(lAt -= 3, ",");
    }
    return lText;
}

std::string sCounted(std::uint64_t aNumber, const char* apWhat) {
    return sWithCommas(aNumber) + " " + apWhat + (aNumber == 1 ? "" : "s");
}

}  // namespace

std::time_t ZTCSnStatus::beginOfDay(Clock::time_point aNow) {
    const std::time_t lNow = Clock::to_time_t(aNow);
    std::tm lDay{};
    static std::mutex sLock;  // the C library has one, which the thread sanitizer does not see
    const std::lock_guard lLock(sLock);
    localtime_r(&lNow, &lDay);
    lDay.tm_hour = lDay.tm_min = lDay.tm_sec = 0;
    lDay.tm_isdst = -1;
    return std::mktime(&lDay);
}

// Nothing as long as all is there.
std::string ZTCSnStatus::getHostTrouble() const {
    std::string lText;
    const std::uint64_t lMaps = mrFigures.get(ZTSN_Maps);
    const std::uint64_t lWhole = mrFigures.get(ZTSN_WholeMaps);
    if (lWhole < lMaps) {
        lText += fmt::format(", {} of {} have all paths", sWithCommas(lWhole), sCounted(lMaps, "map"));
    }
    if (const std::uint64_t lStalled = mrFigures.get(ZTSN_StalledDisks); lStalled != 0) {
        lText += ", " + sCounted(lStalled, "disk") + (lStalled == 1 ? " stands" : " stand") + " still";
    }
    return lText;
}

std::string ZTCSnStatus::getText(Clock::time_point aNow, const std::string& acrTrouble) {
    const auto lTaken = static_cast<std::int64_t>(mrFigures.get(ZTSN_Events));
    const std::time_t lDay = beginOfDay(aNow);
    if (mDay != 0 && lDay != mDay) {
        mBefore = -lTaken;
    }
    mDay = lDay;
    const auto lToday = static_cast<std::uint64_t>(std::max<std::int64_t>(0, mBefore + lTaken));
    std::string lText =
        sCounted(lToday, "event") + " today, " + sCounted(mrFigures.get(ZTSN_Ports), "port") + ", ";
    if (const std::uint64_t lFetch = mrFigures.get(ZTSN_LastFetch); lFetch == 0) {
        lText += "nothing fetched yet";
    } else {
        const auto lNow = std::chrono::nanoseconds(aNow.time_since_epoch()).count();
        const auto lAgo = std::max<std::int64_t>(0, lNow - static_cast<std::int64_t>(lFetch));
        lText += fmt::format("last fetch {:.1f} s ago", static_cast<double>(lAgo) / 1e9);
    }
    lText += mrFigures.get(ZTSN_AgentUp) != 0 ? "" : ", no agent";
    if (const std::uint64_t lIncidents = mrFigures.get(ZTSN_Incidents); lIncidents != 0) {
        lText += ", " + sCounted(lIncidents, "incident");
    }
    lText += getHostTrouble();
    return lText + (acrTrouble.empty() ? "" : "; the history is not written: " + acrTrouble);
}
