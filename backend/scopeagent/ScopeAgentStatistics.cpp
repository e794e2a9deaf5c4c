#include "ScopeAgentStatistics.h"

#include <iterator>
#include <string>

#include "LibdfcCalls.h"

namespace {

// Every row, in its place.
#define ZT_KIND(Name, Label, ...) "events_total{kind=\"" #Label "\"}",
#define ZT_LOSS(Name, Label) "lost_total{reason=\"" #Label "\"}",
#define ZT_FUNCTION(Name, Label) "library_call_since_ns{function=\"" #Label "\"}",
constexpr const char* sNames[] = {
#include "ScopeAgentEventFacts.def"
    "recorded_events_total",
    "records_total",
    "folded_total",
    ZT_SCOPE_LOSSES(ZT_LOSS)  //
    "fetches_total",
    "fetched_events_total",
    "commands_total",
    "last_fetch_time_ns",
    "held_events",
    "held_records",
    "held_bytes",
    "held_bytes_limit",
    "limit_reached_total",
    "log_records_total",
    "log_lost_total{reason=\"full\"}",
    "log_lost_total{reason=\"error\"}",
    "callbacks_inside",
    ZT_LIBDFC_FUNCTIONS(ZT_FUNCTION)  //
    "collecting",
    "ended_time_ns",
};
#undef ZT_KIND
#undef ZT_LOSS
#undef ZT_FUNCTION

constexpr bool sAreSound() {
    for (const char* const lpName : sNames) {
        if (std::char_traits<char>::length(lpName) >= ZTSStatisticsRow::NameSize) {
            return false;
        }
    }
    return std::size(sNames) == ZTS_Count;
}
static_assert(sAreSound(), "a name a row, and each fits");

}  // namespace

void ZTNameStatistics() {
    for (unsigned int lRow = 0; lRow < ZTS_Count; ++lRow) {
        ZTNameStatistic(lRow, sNames[lRow]);
    }
    ZTBeginStatistics(ZTS_Count);
}
