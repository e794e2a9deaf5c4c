// An incident: what one person would call one problem.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Ports.h"
#include "Record.h"
#include "SensorTime.h"
#include "Wwn.h"

enum class ZTEIncidentClass : unsigned char {
    CollectorSilent,
    PortDown,
    RedundancyLost,
    LinkFlap,
    LinkDegraded,
    FabricChange,
    SlowDrain,
    TargetErrors,
    DeviceErrors,
    LoginRejected,
    Overload,
    Resets,
    IoStall,
    Count
};
/// "link_flap".
const char* nameOf(ZTEIncidentClass aClass);
std::optional<ZTEIncidentClass> findIncidentClass(std::string_view aName);

enum class ZTEIncidentState : unsigned char {
    Open,
    Quiet,   ///< events have stopped for a minute, but what it is about is not as it was
    Closed,  ///< also one that is part of another by now
};
const char* nameOf(ZTEIncidentState aState);
std::optional<ZTEIncidentState> findIncidentState(std::string_view aName);

/// Where something began. Zeros and empty texts: that does not apply.
struct ZTSIncidentCause {
    std::string mKind;  ///< a kind of sign (docs/incidents.md): "rscn", "link_down", "not_ready"
    ZTSWwn mInitiator;
    ZTSWwn mTarget;
    std::string mFabric;
    ZTNanoseconds mTime = 0;
    bool mIsLikely = false;  ///< else it is only possible

    bool operator==(const ZTSIncidentCause&) const = default;
};

/// All signs of one kind.
struct ZTSIncidentSymptom {
    std::string mKind;
    std::uint64_t mEvents = 0;
    ZTNanoseconds mFirst = 0;
    ZTNanoseconds mLast = 0;

    bool operator==(const ZTSIncidentSymptom&) const = default;
};

/// What it hits, as it was then. Each sorted.
struct ZTSIncidentHits {
    std::vector<std::string> mLuns;  ///< their WWIDs, else what paths call them
    std::vector<std::string> mDisks;
    std::vector<std::string> mMaps;
    std::vector<std::string> mVolumes;
    std::vector<std::string> mMounts;

    bool operator==(const ZTSIncidentHits&) const = default;
};

/// Records that belong to it: those of this kind and these ports that began in this time. The history finds
/// their ids.
struct ZTSIncidentEvidence {
    std::uint8_t mCategory = 0;
    std::uint8_t mSubcategory = 0;
    ZTSWwn mInitiator;
    ZTSWwn mRemote;  ///< zeros: none
    std::string mFabric;
    ZTNanoseconds mFirst = 0;
    ZTNanoseconds mLast = 0;

    bool operator==(const ZTSIncidentEvidence&) const = default;
};

struct ZTSAcknowledgement {
    std::string mWho;
    ZTNanoseconds mTime = 0;
    std::string mNote;

    bool operator==(const ZTSAcknowledgement&) const = default;
};

/// Plain values: any thread.
struct ZTSIncident {
    std::uint64_t mId = 0;  ///< from 1 on, and never used again
    ZTEIncidentClass mClass = ZTEIncidentClass::IoStall;
    ZTEIncidentState mState = ZTEIncidentState::Open;
    std::string mTitle;         ///< one sentence, with what it hits
    ZTNanoseconds mOpened = 0;  ///< its first sign
    ZTNanoseconds mLast = 0;    ///< its last one
    ZTNanoseconds mClosed = 0;  ///< 0: it is not
    std::uint64_t mMerged = 0;  ///< into which; 0: into none
    std::vector<std::string> mFabrics;
    std::vector<ZTSWwn> mInitiators;
    std::vector<ZTSWwn> mTargets;
    ZTSIncidentHits mHits;
    std::uint64_t mEvents = 0;
    ZTSIncidentCause mFirstCause;
    std::vector<ZTSIncidentCause> mCauses;  ///< later ones
    std::vector<ZTSIncidentSymptom> mSymptoms;
    std::uint32_t mPathsLeft = 0;   ///< of the map that has the fewest, now
    std::uint32_t mPathsTotal = 0;  ///< of that one; 0: no map is concerned
    std::uint64_t mLosses = 0;      ///< events that were lost in that time
    std::vector<ZTSIncidentEvidence> mEvidence;
    std::vector<ZTSChange> mChanges;  ///< of the seven days before
    std::string mSuggestion;          ///< one sentence: where to look next
    std::uint64_t mSeries = 0;        ///< the first one of a kind that comes back; its own id: it is that
    std::optional<ZTSAcknowledgement> mAcknowledged;
    std::string mWindow;   ///< the text of the maintenance window that all of it is in; empty: none
    bool mIsKept = false;  ///< retention leaves it and its evidence alone

    /// What whoever found it has to know to go on behind a new start; nobody else reads it.
    std::string mMemory;

    bool operator==(const ZTSIncident&) const = default;
};

/// How much of a kind of sign there was at a port on a day: what is ordinary here.
struct ZTSBaseline {
    std::int64_t mDay = 0;  ///< days since 1970, in UTC
    std::string mKind;      ///< of sign
    ZTSWwn mPort;           ///< the one that it is about: the remote one, else the host's; zeros: the host
    std::uint64_t mEvents = 0;

    bool operator==(const ZTSBaseline&) const = default;
};

/// What has become of incidents since it was last asked: what goes into the history.
struct ZTSIncidentNews {
    std::vector<ZTSIncident> mIncidents;  ///< all of each that has changed
    std::vector<ZTSBaseline> mBaselines;  ///< each with the day's sum
    ZTNanoseconds mTo = 0;  ///< all that happened up to then is in them; 0: nothing was looked at

    bool isEmpty() const { return mIncidents.empty() && mBaselines.empty() && mTo == 0; }
};

/// What the history knows of incidents when vrx-sn starts.
struct ZTSIncidentStart {
    std::uint64_t mNextId = 1;
    /// All that are not closed, and those that were closed or came back in the last days, the oldest first.
    std::vector<ZTSIncident> mIncidents;
    std::vector<ZTSBaseline> mBaselines;  ///< of the last days
    ZTNanoseconds mTo = 0;                ///< what happened up to then is in them; 0: nothing
};
