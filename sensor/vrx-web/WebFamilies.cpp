#include "WebFamilies.h"

#include <algorithm>

#include "ShownText.h"

namespace {

constexpr ZTSWebFamily sFamilies[] = {
    {"events_total",
     true,
     {"initiator", "kind"},
     "Events that the history ever had, by port of the host and kind"},
    {"target_events_total",
     true,
     {"initiator", "target", "kind"},
     "The same by port beyond the fabric; of the 2,000 that had most"},
    {"series_dropped_total",
     true,
     {},
     "Series of target_events_total and fpin_total that are not shown, the most there were at a time"},
    {"check_conditions_total", true, {"initiator", "sense_key"}, "SCSI check conditions by sense key"},
    {"fpin_total",
     true,
     {"initiator", "target", "descriptor", "event"},
     "Notices of the fabric (FPIN); target is the port that they are about"},
    {"port_state",
     false,
     {"initiator", "state"},
     "1 for the state that a port of the host is in, 0 for others"},
    {"port_info",
     false,
     {"initiator", "node_name", "fabric", "host"},
     "1; what is known of a port of the host"},
    {"paths", false, {"map"}, "Paths that a multipath map has when all are there"},
    {"paths_usable", false, {"map"}, "Paths of a multipath map that can be used"},
    {"stalled_disks", false, {}, "Disks that have commands and complete none"},
    {"lost_events_total", true, {"reason"}, "Events that no record has"},
    {"losses_unnumbered_total",
     true,
     {"reason"},
     "How often events were lost of which nobody knows how many"},
    {"agent_up", false, {}, "1: the agent answers the sensor"},
    {"sensor_up", false, {}, "1: the sensor runs"},
    {"last_fetch_timestamp_seconds", false, {}, "When the sensor last fetched from the agent"},
    {"fetches_total", true, {}, "Fetches of the sensor that runs, or ran last"},
    {"store_readable", false, {}, "1: the history can be read; 0: what comes from it is as it was last read"},
    {"store_bytes", false, {}, "Size of the history's file"},
    {"store_limit_bytes", false, {}, "Size that it may have; behind that the oldest goes"},
    {"store_wal_bytes", false, {}, "Size of the log beside it"},
    {"store_records", false, {}, "Records in the history"},
    {"uncommitted_bytes", false, {}, "What the sensor has in memory and not in the history yet"},
    {"sink_pending_records", false, {"sink"}, "Records that wait to be sent"},
    {"sink_sent_records_total", true, {"sink"}, "Records that were sent and acknowledged"},
    {"sink_failures_total", true, {"sink", "reason"}, "What could not be sent and is tried again"},
    {"incidents_open", false, {"class"}, "Incidents that are not closed"},
    {"incidents_total", true, {"class"}, "Incidents that there ever were, each in every class that it had"},
    {"build_info", false, {"version"}, "1; the version of vrx-web"},
};
static_assert(std::size(sFamilies) == static_cast<std::size_t>(ZTEWebFamily::Count));

const ZTSWebFamily& sFamilyOf(ZTEWebFamily aFamily) {
    return sFamilies[static_cast<std::size_t>(aFamily)];
}

// What comes from outside may be any bytes, and Prometheus takes none but UTF-8.
std::vector<prometheus::ClientMetric::Label> sLabelsOf(const ZTSWebFamily& acrFamily,
                                                       const ZTCWebSamples::Labels& acrValues) {
    std::vector<prometheus::ClientMetric::Label> lLabels;
    for (std::size_t lAt = 0; lAt < acrValues.size(); ++lAt) {
        lLabels.push_back({acrFamily.mLabels.at(lAt), toShownText(acrValues[lAt])});
    }
    return lLabels;
}

}  // namespace

std::span<const ZTSWebFamily> listWebFamilies() {
    return sFamilies;
}

void ZTCWebSamples::set(ZTEWebFamily aFamily, const Labels& acrLabels, double aValue) {
    mSamples[aFamily][acrLabels] = aValue;
}

void ZTCWebSamples::add(ZTEWebFamily aFamily, const Labels& acrLabels, std::uint64_t aCount) {
    mSamples[aFamily][acrLabels] += static_cast<double>(aCount);
}

std::size_t ZTCWebSamples::keepLargest(ZTEWebFamily aFamily, std::size_t aMost) {
    std::map<Labels, double>& lrSamples = mSamples[aFamily];
    if (lrSamples.size() <= aMost) {
        return 0;
    }
    using Sample = std::map<Labels, double>::iterator;
    std::vector<Sample> lAll;
    for (auto lAt = lrSamples.begin(); lAt != lrSamples.end(); ++lAt) {
        lAll.push_back(lAt);
    }
    // Of equal ones the first by their labels: each time the same.
    std::ranges::stable_sort(lAll, std::greater<>(), [](Sample aAt) { return aAt->second; });
    for (std::size_t lAt = aMost; lAt < lAll.size(); ++lAt) {
        lrSamples.erase(lAll[lAt]);
    }
    return lAll.size() - aMost;
}

std::vector<prometheus::MetricFamily> ZTCWebSamples::list() const {
    std::vector<prometheus::MetricFamily> lFamilies;
    for (const auto& [lFamily, lrSamples] : mSamples) {
        if (lrSamples.empty()) {
            continue;
        }
        const ZTSWebFamily& lrFamily = sFamilyOf(lFamily);
        prometheus::MetricFamily& lrTold = lFamilies.emplace_back();
        lrTold.name = std::string("scopeagent_") + lrFamily.mpName;
        lrTold.help = lrFamily.mpHelp;
        lrTold.type = lrFamily.mIsCounter ? prometheus::MetricType::Counter : prometheus::MetricType::Gauge;
        for (const auto& [lrLabels, lValue] : lrSamples) {
            prometheus::ClientMetric& lrMetric = lrTold.metric.emplace_back();
            lrMetric.label = sLabelsOf(lrFamily, lrLabels);
            (lrFamily.mIsCounter ? lrMetric.counter.value : lrMetric.gauge.value) = lValue;
        }
    }
    return lFamilies;
}
