#include "WebMetrics.h"

#include <prometheus/text_serializer.h>

#include <algorithm>
#include <sstream>

#include "Incident.h"
#include "TimeText.h"
#include "WebAnswer.h"

namespace {

using Family = ZTEWebFamily;

constexpr std::size_t sMostSeries = 2000;
constexpr std::chrono::seconds sReadEvery(1);
constexpr double sNanosecond = 1e-9;

// Figures of vrx-sn that are metrics as they are; what is of the history stays as it was last seen.
struct ZTSWebFigureRow {
    Family mFamily;
    const char* mpName;
    bool mStays;
};
constexpr ZTSWebFigureRow sRows[] = {
    {Family::StalledDisks, "stalled_disks", false},
    {Family::Fetches, "fetches_total", true},
    {Family::StoreBytes, "store_bytes", true},
    {Family::StoreLimitBytes, "store_limit_bytes", true},
    {Family::StoreWalBytes, "store_wal_bytes", true},
    {Family::StoreRecords, "store_records", true},
    {Family::UncommittedBytes, "uncommitted_bytes", false},
};

}  // namespace

ZTCWebMetrics::ZTCWebMetrics(ZTCWebHealth& arHealth, std::string aSinks)
    : mrHealth(arHealth), mSinks(std::move(aSinks)) {}

bool ZTCWebMetrics::isDue() {
    const std::scoped_lock lLock(mMutex);
    return mRead == Clock::time_point() || Clock::now() - mRead >= sReadEvery;
}

void ZTCWebMetrics::read(ZTCStoreReader& arReader) {
    if (!isDue()) {
        return;
    }
    std::size_t lDropped = 0;
    auto lpStored = std::make_shared<const ZTCWebSamples>(readStoredSamples(arReader, sMostSeries, lDropped));
    const std::scoped_lock lLock(mMutex);
    mpStored = std::move(lpStored);
    mRead = Clock::now();
    mDropped = std::max(mDropped, lDropped);
}

void ZTCWebMetrics::addFigures(ZTCWebSamples& arSamples) const {
    const ZTSWebFigures lFigures = mrHealth.getFigures();
    const auto lTell = [&](Family aFamily, const ZTCWebSamples::Labels& acrLabels, const std::string& acrName,
                           double aUnit = 1) {
        if (const auto lValue = lFigures.mRows.get(acrName)) {
            arSamples.set(aFamily, acrLabels, static_cast<double>(*lValue) * aUnit);
        }
    };
    for (const auto& [lFamily, lpName, lStays] : sRows) {
        lStays || lFigures.mIsRunning ? lTell(lFamily, {}, lpName) : void();
    }
    if (lFigures.mRows.get("last_fetch_time_ns").value_or(0) != 0) {
        lTell(Family::LastFetch, {}, "last_fetch_time_ns", sNanosecond);
    }
    const bool lHasAgent = lFigures.mIsRunning && lFigures.mRows.get("agent_up").value_or(0) != 0;
    arSamples.set(Family::AgentUp, {}, lHasAgent ? 1 : 0);
    arSamples.set(Family::SensorUp, {}, lFigures.mIsRunning ? 1 : 0);
    for (std::size_t lAt = 0; lFigures.mIsRunning && lAt < static_cast<std::size_t>(ZTEIncidentClass::Count);
         ++lAt) {
        const std::string lClass = nameOf(static_cast<ZTEIncidentClass>(lAt));
        lTell(Family::IncidentsOpen, {lClass}, "incidents_" + lClass);
    }
}

std::vector<prometheus::MetricFamily> ZTCWebMetrics::Collect() const {
    ZTCWebSamples lSamples;
    {
        const std::scoped_lock lLock(mMutex);
        lSamples = *mpStored;
        lSamples.set(Family::SeriesDropped, {}, static_cast<double>(mDropped));
    }
    addFigures(lSamples);
    addSinkSamples(mSinks, lSamples);
    const auto lNow = toNanoseconds(toSensorTime(std::chrono::system_clock::now()));
    lSamples.set(Family::StoreReadable, {}, mrHealth.getState(lNow).mHistory.empty() ? 1 : 0);
    lSamples.set(Family::BuildInfo, {ZT_WEB_VERSION}, 1);
    return lSamples.list();
}

ZTSWebAnswer ZTCWebMetrics::answer() const {
    std::ostringstream lText;
    prometheus::TextSerializer().Serialize(lText, Collect());
    ZTSWebAnswer lAnswer;
    lAnswer.mpType = "text/plain; version=0.0.4; charset=utf-8";
    lAnswer.mpBody = std::make_shared<const std::string>(lText.str());
    return lAnswer;
}
