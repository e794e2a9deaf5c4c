// What vrx-sn counts about itself, in /run/vrx-sn/vrx-sn.stats (docs/statistics.md has the layout and the
// rows).
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "SensorFiles.h"

struct ZTSStatisticsBlock;

enum ZTESnFigure : unsigned char {
    ZTSN_Fetches,           // fetches_total
    ZTSN_LastFetch,         // last_fetch_time_ns
    ZTSN_Events,            // events_total: taken from the agent
    ZTSN_Records,           // records_total: taken from the agent
    ZTSN_Rows,              // rows_total: what became of them
    ZTSN_Commits,           // commits_total
    ZTSN_LastCommit,        // last_commit_time_ns
    ZTSN_UncommittedBytes,  // uncommitted_bytes
    ZTSN_StoreStandsSince,  // store_stands_since_ns: 0: it does not
    ZTSN_StoreBytes,        // store_bytes
    ZTSN_StoreWalBytes,     // store_wal_bytes
    ZTSN_StoreRecords,      // store_records
    ZTSN_AgentUp,           // agent_up: 1: it answers
    ZTSN_Ports,             // ports
    ZTSN_LogLost,           // log_lost_total
    ZTSN_Period,            // period_ms: from fetch to fetch
    ZTSN_Luns,              // luns: of Fibre Channel, each path's
    ZTSN_Maps,              // maps
    ZTSN_WholeMaps,         // whole_maps: with all their paths
    ZTSN_Paths,             // paths: of the maps, those that are missing too
    ZTSN_UsablePaths,       // usable_paths
    ZTSN_StalledDisks,      // stalled_disks
    ZTSN_Stalls,            // stalls_total: that are over
    ZTSN_Fpins,             // fpins_total
    ZTSN_LostMessages,      // lost_messages_total: of the kernel's
    ZTSN_Requests,          // requests_total
    ZTSN_LongestSlice,      // longest_slice_ns: of a look at the storage, processor time
    ZTSN_Incidents,         // incidents: that are not closed
    ZTSN_FirstIncidents,  // incidents_CLASS: of them; a row for each class, in the order of ZTEIncidentClass
    ZTSN_LastIncidents = ZTSN_FirstIncidents + 12,
    ZTSN_IncidentsTold,    // incidents_told_total: that opened, reopened or got worse
    ZTSN_IncidentsLost,    // incident_events_lost_total: that were not looked at for incidents
    ZTSN_Commands,         // commands_total: runs of --on-incident's
    ZTSN_CommandsFailed,   // commands_failed_total
    ZTSN_CommandsDropped,  // commands_dropped_total: runs that were not made
    ZTSN_StoreLimit,       // store_limit_bytes: how large the history grows
    ZTSN_Count
};

/// Any thread. A count is a store into memory.
class ZTCSnFigures {
  public:
    /// In that directory, which has to be on tmpfs; empty, or another file system: counted, shown to nobody.
    explicit ZTCSnFigures(const std::string& acrDirectory);
    ~ZTCSnFigures();
    ZTCSnFigures(const ZTCSnFigures&) = delete;
    ZTCSnFigures& operator=(const ZTCSnFigures&) = delete;

    /// They are shown no longer, but counted on.
    void withdraw() const;

    void count(ZTESnFigure aFigure, std::uint64_t aBy = 1) { at(aFigure) += aBy; }
    void set(ZTESnFigure aFigure, std::uint64_t aValue) { at(aFigure) = aValue; }
    std::uint64_t get(ZTESnFigure aFigure) const { return at(aFigure); }
    /// Why nobody is shown them; empty: they are, or nobody asked for it.
    const std::string& getTrouble() const { return mTrouble; }

  private:
    std::atomic<std::uint64_t>& at(ZTESnFigure aFigure) const;
    void show();

    std::string mPath;  ///< empty: in memory alone
    std::string mTrouble;
    ZTCSensorDescriptor mFile;
    ZTSStatisticsBlock* mpBlock;
};
