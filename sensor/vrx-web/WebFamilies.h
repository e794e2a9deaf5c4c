// What is measured for Prometheus: a row a family (docs/metrics.md).
#pragma once

#include <prometheus/metric_family.h>

#include <array>
#include <initializer_list>
#include <map>
#include <span>
#include <string>
#include <vector>

enum class ZTEWebFamily : unsigned char {
    Events,
    TargetEvents,
    SeriesDropped,
    CheckConditions,
    Fpins,
    PortState,
    PortInfo,
    Paths,
    PathsUsable,
    StalledDisks,
    LostEvents,
    LossesUnnumbered,
    AgentUp,
    SensorUp,
    LastFetch,
    Fetches,
    StoreReadable,
    StoreBytes,
    StoreLimitBytes,
    StoreWalBytes,
    StoreRecords,
    UncommittedBytes,
    SinkPending,
    SinkSent,
    SinkFailures,
    IncidentsOpen,
    Incidents,
    BuildInfo,
    Count
};

struct ZTSWebFamily {
    const char* mpName;                  ///< behind "scopeagent_"
    bool mIsCounter;                     ///< it only grows, but for a new start, or a new history
    std::array<const char*, 4> mLabels;  ///< nulls behind the last one
    const char* mpHelp;
};
/// In the order of their enumeration.
std::span<const ZTSWebFamily> listWebFamilies();

/// Values of some families. Plain values: any thread.
class ZTCWebSamples {
  public:
    /// A value for each of the family's labels, of whatever bytes.
    using Labels = std::vector<std::string>;

    void set(ZTEWebFamily aFamily, const Labels& acrLabels, double aValue);
    void add(ZTEWebFamily aFamily, const Labels& acrLabels, std::uint64_t aCount);
    void clear(ZTEWebFamily aFamily) { mSamples.erase(aFamily); }
    /// Leaves the largest ones of a family. Returns how many had to go.
    std::size_t keepLargest(ZTEWebFamily aFamily, std::size_t aMost);
    /// Without families that have no value.
    std::vector<prometheus::MetricFamily> list() const;

  private:
    std::map<ZTEWebFamily, std::map<Labels, double>> mSamples;
};
