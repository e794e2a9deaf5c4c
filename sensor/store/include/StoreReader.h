// Reads the history beside whoever writes it.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <limits>
#include <set>
#include <unordered_map>

#include "HostNews.h"
#include "Incident.h"
#include "Ports.h"
#include "Record.h"
#include "StoreFile.h"
#include "StoreRequest.h"

/// What is asked for. An empty list takes all.
struct ZTSHistoryFilter {
    ZTNanoseconds mSince = std::numeric_limits<ZTNanoseconds>::min();  ///< what ends before it is left out
    ZTNanoseconds mUntil = std::numeric_limits<ZTNanoseconds>::max();  ///< and what begins after it
    std::vector<std::pair<std::uint8_t, std::uint8_t>> mKinds;         ///< by their numbers
    std::vector<ZTSWwn> mInitiators;                                   ///< port names
    std::vector<ZTSWwn> mTargets;                                      ///< of the ports beyond the fabric
    std::string mFabric;                                               ///< empty: any

    bool takesAllSeries() const {
        return mKinds.empty() && mInitiators.empty() && mTargets.empty() && mFabric.empty();
    }
    bool takes(const ZTSSeries& acrSeries) const;
    bool takes(ZTNanoseconds aFirst, ZTNanoseconds aLast) const {
        return aLast >= mSince && aFirst <= mUntil;
    }
    /// What is said of a port only if it is one of those; what concerns all of them always.
    bool takes(const ZTSChange& acrChange) const;
};

struct ZTSStoredRecord {
    std::uint64_t mId = 0;
    bool mIsOpen = false;  ///< it may still grow
    ZTSRecord mRecord;
};

/// What records have in common, and what there ever was of them, also when they have gone.
struct ZTSStoredSeries {
    std::int64_t mId = 0;
    ZTSSeries mSeries;
    std::uint64_t mEvents = 0;
    std::uint64_t mRecords = 0;
    ZTNanoseconds mFirst = 0;
    ZTNanoseconds mLast = 0;
};

struct ZTSStoredPort {
    ZTSLocalPort mPort;
    bool mIsHere = false;
    ZTNanoseconds mSeen = 0;   ///< when it was last seen
    ZTNanoseconds mSince = 0;  ///< since when it is as it is; 0: not known
};
struct ZTSStoredRemotePort {
    ZTSRemotePort mPort;
    bool mIsHere = false;
    ZTNanoseconds mSeen = 0;
};

struct ZTSLossTotal {
    std::string mSource;
    std::string mReason;
    std::uint64_t mEvents = 0;
    std::uint64_t mUnknown = 0;  ///< how often nobody knows how many
};

/// Check conditions of an initiator that there ever were.
struct ZTSSenseTotal {
    ZTSWwn mInitiator;
    std::optional<std::uint32_t> mSenseKey;  ///< nothing: they had none, or none that can be
    std::uint64_t mEvents = 0;
};

/// FPINs that there ever were.
struct ZTSFpinTotal {
    ZTSWwn mInitiator;
    std::optional<ZTSWwn>
        mTarget;  ///< the port that they were about; nothing: none, or the rest of very many
    std::string mDescriptor;
    std::string mEvent;
    std::uint64_t mTimes = 0;
};

/// Incidents that there ever were; one that came to be of another class counts in both.
struct ZTSIncidentTotal {
    std::string mClass;
    std::uint64_t mIncidents = 0;
};

/// Events of what stands on an axis, in the minute or hour that begins then.
struct ZTSStoreSum {
    std::int64_t mTime = 0;  ///< seconds since 1970
    std::string mMember;
    std::uint64_t mEvents = 0;
};
enum class ZTEStoreAxis : unsigned char { Kind = 1, Initiator, Target, Fabric };
enum class ZTEStoreBin : unsigned char { Minute, Hour };

struct ZTSStoredFpin {
    std::uint64_t mId = 0;
    ZTSFpin mFpin;
};
struct ZTSStoredStall {
    std::uint64_t mId = 0;
    ZTSStall mStall;
};
struct ZTSStoredLun {
    ZTSLun mLun;
    bool mIsHere = false;
    ZTNanoseconds mSeen = 0;  ///< when it was last seen
};
struct ZTSStoredMap {
    ZTSMap mMap;
    bool mIsHere = false;
    ZTNanoseconds mSeen = 0;
    ZTNanoseconds mSince = 0;  ///< since when it has as many usable paths as it has; 0: not known
};
struct ZTSStoredStorage {
    ZTNanoseconds mTime = 0;  ///< when it last changed; 0: it was never written
    std::vector<ZTSStoredLun> mLuns;
    std::vector<ZTSStoredMap> mMaps;
    std::vector<ZTSVolume> mVolumes;
    std::vector<ZTSMount> mMounts;

    /// What is there, as the host showed it.
    ZTSHostStorage listHere() const;
};
struct ZTSStoredMeasure {
    std::int64_t mTime = 0;  ///< seconds since 1970
    ZTSMeasured mWhose;
    std::string mName;
    std::uint64_t mValue = 0;
};

/// How far a store has come.
struct ZTSStorePlace {
    std::string mStore;           ///< its UUID
    std::uint64_t mClosedTo = 0;  ///< records up to this id never change again
    std::uint64_t mLastRecord = 0;
    std::uint64_t mLastLoss = 0;
    std::uint64_t mLastChange = 0;
    std::uint64_t mLastFpin = 0;
    std::uint64_t mLastStall = 0;
    std::set<std::uint64_t> mOpenStalls{};  ///< up to that one, those that are not over
};

/// One thread. Everything is read in transactions of a quarter of a second at most, so that whoever writes
/// can empty the log beside the file meanwhile. All functions throw ZTCStoreError.
class ZTCStoreReader {
  public:
    explicit ZTCStoreReader(std::string aPath);

    const std::string& getPath() const { return mPath; }
    const std::string& getHost() const { return mHost; }  ///< whose history it is
    ZTSStorePlace readPlace();

    std::vector<ZTSStoredSeries> readSeries();
    std::vector<ZTSStoredPort> readPorts();
    std::vector<ZTSStoredRemotePort> readRemotePorts();
    ZTPortLabels readLabels();
    /// As it was last written: what is there, and what has gone since but is still missing. What is there was
    /// seen when anything was last written.
    ZTSStoredStorage readStorage();
    /// Those that overlap the time, in the order of their begin; 0: no limit.
    std::vector<ZTSStoredFpin> readFpins(ZTNanoseconds aSince, ZTNanoseconds aUntil, std::size_t aLimit = 0);
    std::vector<ZTSStoredStall> readStalls(ZTNanoseconds aSince, ZTNanoseconds aUntil,
                                           std::size_t aLimit = 0);
    /// Those that are not over, in the order of their begin; however many there were, this costs no more.
    std::vector<ZTSStoredStall> readOpenStalls();
    /// Those that were not over at a time, the youngest first, without those that have become part of others.
    /// 0: no limit.
    std::vector<ZTSIncident> readIncidents(ZTNanoseconds aSince, std::size_t aLimit = 0);
    /// Also of one that has become part of another. Nothing: there is none of that id.
    std::optional<ZTSIncident> readIncident(std::uint64_t aId);
    /// The ids of an incident's records, ascending: the first of them; 0: no limit. IncidentLookup.h has the
    /// other way.
    std::vector<std::uint64_t> readEvidence(const ZTSIncident& acrIncident, std::size_t aLimit);
    std::vector<ZTSBlindSpot> readBlindSpots();
    std::vector<ZTSWindow> readWindows();
    /// From one time to before another, in the order of time; an empty name takes all measures.
    std::vector<ZTSStoredMeasure> readMeasures(const std::string& acrName, ZTEStoreBin aBin,
                                               std::int64_t aFrom, std::int64_t aTo);
    /// What somebody has asked vrx-sn for, and it has not done yet.
    std::vector<ZTSStoreRequest> readRequests();
    std::vector<ZTSLossTotal> readLossTotals();
    std::vector<ZTSSenseTotal> readSenseTotals();
    std::vector<ZTSFpinTotal> readFpinTotals();
    std::vector<ZTSIncidentTotal> readIncidentTotals();
    /// From one time to before another, in the order of time.
    std::vector<ZTSStoreSum> readSums(ZTEStoreAxis aAxis, ZTEStoreBin aBin, std::int64_t aFrom,
                                      std::int64_t aTo);

    /// Whether something was written since the last call.
    bool hasChanged();
    /// Whether the path leads to another file by now, or to none.
    bool isReplaced() const;

    // ---- For those who read on (RecordScan.h) ----

    SQLite::Database& getDatabase() { return mDatabase; }
    /// By its id in the store.
    const ZTSSeries& seriesOf(std::int64_t aId);
    std::int64_t readMeta(const char* apName);

  private:
    /// Device and number; nothing: there is none at the path.
    using FileId = std::optional<std::pair<dev_t, ino_t>>;
    static FileId findFile(const std::string& acrPath);

    const std::string mPath;
    const FileId mFile;  ///< before it is opened: what comes to stand there meanwhile is another one
    SQLite::Database mDatabase;
    SQLite::Statement mVersion;
    SQLite::Statement mOneSeries;
    std::int64_t mVersionBefore = -1;
    std::string mHost;
    std::unordered_map<std::int64_t, ZTSSeries> mSeries;
};

/// A transaction that reads, and that is soon over.
class ZTCStoreSlice {
  public:
    explicit ZTCStoreSlice(ZTCStoreReader& arReader);
    ~ZTCStoreSlice();
    ZTCStoreSlice(const ZTCStoreSlice&) = delete;
    ZTCStoreSlice& operator=(const ZTCStoreSlice&) = delete;

    /// To be asked at each row: whether it has been enough of them.
    bool isEnough(std::size_t aBytes = 0);

  private:
    SQLite::Database& mrDatabase;
    const std::chrono::steady_clock::time_point mEnd;
    unsigned int mRows = 0;
    std::size_t mBytes = 0;
};
