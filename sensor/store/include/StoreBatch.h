// What goes into the store at once, and what it knew when it was opened.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "HostFacts.h"
#include "HostNews.h"
#include "Incident.h"
#include "Ports.h"
#include "Record.h"

/// A row that is new, or has grown.
struct ZTSStoreRow {
    std::uint64_t mId = 0;  ///< ascending without a gap for the new ones, and never used again
    bool mIsNew = true;
    ZTSRecord mRecord;         ///< as it is now; its series and mFirst never change once it is in the store
    std::uint64_t mAdded = 0;  ///< how many of its occurrences the store does not have yet
};

/// One run of an agent, by its start and its process.
struct ZTSAgentRun {
    ZTNanoseconds mStart = 0;
    std::int64_t mProcess = 0;
    ZTNanoseconds mCame = 0;  ///< when it was seen first
    ZTNanoseconds mSeen = 0;  ///< and last
    ZTNanoseconds mWent = 0;  ///< 0: not yet
    std::string mEnd;         ///< "", "ended", "killed", "unknown"
    /// Events that its fetches took and that are accounted for: in records, or told as lost.
    std::uint64_t mTaken = 0;
    /// Of each figure that counts losses, by "agent/NAME" or "library/NAME", what is told already.
    std::map<std::string, std::uint64_t> mTold;
    /// Its figures when it was last seen, by name.
    std::map<std::string, std::uint64_t> mFigures;
};

struct ZTSStoreBatch {
    std::vector<ZTSStoreRow> mRows;
    std::uint64_t mClosedTo = 0;  ///< rows up to this id never change again; 0: as before
    std::vector<ZTSLoss> mLosses;
    std::vector<ZTSChange> mChanges;
    std::vector<ZTSAgentRun> mAgents;    ///< runs that have changed, the oldest first
    std::optional<ZTSHostPorts> mPorts;  ///< all that there are
    std::optional<ZTPortLabels> mLabels;
    ZTSHostNews mHost;
    std::optional<ZTSHostFacts> mFacts;
    ZTSIncidentNews mIncidents;
    /// It is not written again when it is the last one that is there; 0: not known.
    std::uint64_t mNumber = 0;

    bool isEmpty() const {
        return mRows.empty() && mClosedTo == 0 && mLosses.empty() && mChanges.empty() && mAgents.empty() &&
               !mPorts && !mLabels && !mFacts && mHost.isEmpty() && mIncidents.isEmpty();
    }
};

/// What the store has when it is opened.
struct ZTSStoreStart {
    std::string mStore;                 ///< its UUID
    ZTNanoseconds mMade = 0;            ///< when it was begun
    std::uint64_t mNextId = 1;          ///< of the next row
    bool mWasInUse = false;             ///< the last vrx-sn did not end in order
    std::string mWriter;                ///< the process of the vrx-sn that had it last; empty: not known
    ZTNanoseconds mLastWrite = 0;       ///< when something was last written; 0: never
    std::string mSetAside;              ///< where a damaged one was put; empty: there was none
    ZTNanoseconds mSetAsideMade = 0;    ///< when that one was begun; 0: not known
    bool mIsMended = false;             ///< another program had written it: its check sums were put on again
    std::optional<ZTSAgentRun> mAgent;  ///< the last one
    /// The ports that were there when they were last written; nothing: it is new.
    std::optional<ZTSHostPorts> mPorts;
    /// LUNs, maps and what stood above, as they were last written; nothing: none were.
    std::optional<ZTSHostStorage> mStorage;
    std::vector<ZTSMap> mMapsGone;  ///< that are still known, with their totals
    /// Stalls that were not over when they were last written.
    std::vector<ZTSStall> mStalls;
    ZTSHostFacts mFacts;  ///< as they were last written
    ZTSIncidentStart mIncidents;
};
