// By which rules signs become incidents. All numbers stand in these tables and nowhere else;
// docs/incidents.md shows them to administrators.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Incident.h"

/// What can be seen of a problem. What comes first in a chain of causes stands first.
enum class ZTESign : unsigned char {
    AgentGone,   ///< a state: until it is back
    SensorGone,  ///< vrx-sn itself was not there for some time
    LinkDown,    ///< a state: the host's port is not online
    LinkUp,
    LinkEvent,  ///< the agent's "link", which says no direction
    PortGone,   ///< a state: the host's port is not there
    PortBack,
    PortError,  ///< port_interrupt_error
    Temperature,
    AdapterArrival,
    LinkErrors,  ///< counters of errors on the link have grown
    FpinLink,    ///< link integrity
    FpinDelivery,
    FpinCongestion,  ///< congestion and peer congestion
    CreditLoss,      ///< counters of credits and of congestion have grown
    FabricChanged,   ///< the host's port is on another fabric, or has another address
    Rscn,
    NotReady,     ///< a target says so: 2/04/xx
    Logo,         ///< also prlo
    LoginReject,  ///< ls_rjt of a login
    TargetLost,   ///< a state: the remote port is not there, or not online
    TargetBack,
    Timeout,
    Reset,      ///< lun_reset, target_reset, bus_reset
    ReadCheck,  ///< fcp_read_check_error
    QueueFull,
    Busy,           ///< device_busy, port_busy, fabric_busy
    Aborted,        ///< b/xx/xx
    HardwareError,  ///< 4/xx/xx
    MediumError,    ///< 3/xx/xx, and failures that a device predicts: x/5d/xx
    Illegal,        ///< 5/xx/xx and other check conditions that mean no harm by themselves
    UnitAttention,  ///< 6/xx/xx
    Recovered,      ///< 1/xx/xx
    LunState,       ///< a LUN is blocked or offline
    AccessChanged,  ///< the access state of a LUN on a path
    PathLost,       ///< a state: a map has fewer paths
    PathBack,
    Stall,  ///< a state: a disk completes nothing
    StallOver,
    QueueDepth,
    Login,  ///< plogi, adisc
    Lost,   ///< events were lost
    AgentBack,
    Count
};

/// What a sign can do.
enum class ZTEWeight : unsigned char {
    Weak,    ///< it joins what is there, and counts; it neither opens, nor widens, nor keeps anything open
    Strong,  ///< it may open something, widens where it is, and keeps it open
    State,   ///< as Strong, and holds until its other half comes
};

struct ZTSSignRow {
    ZTESign mSign;
    const char* mpName;  ///< "link_down", as causes and symptoms have it
    ZTEWeight mWeight;
    /// Of two that belong together the one with the lower rank is the cause.
    unsigned char mRank;
    unsigned int mBefore;  ///< so many seconds before it is told it may have begun
    unsigned int mBehind;  ///< so many seconds behind it its effects may come
    const char* mpText;    ///< what it is in a line: "the link went down"
};
const ZTSSignRow& rowOf(ZTESign aSign);
std::optional<ZTESign> findSign(std::string_view aName);

/// So often at one port, within so many seconds: then it opens an incident; of what is a state, each one
/// does. Those of a class and a sign have the same numbers. mpSays and mpBy have {places}, see
/// ZTSClassRow::mpSentence.
struct ZTSOpening {
    ZTESign mSign = ZTESign::Count;
    const char* mpSays = "";  ///< the verb of the sentence: "was reset {times}"
    const char* mpBy = "";    ///< the same as a cause, behind "by": "a reset of {where}"
    unsigned int mTimes = 1;
    unsigned int mWithin = 60;
    ZTESign mWith = ZTESign::Count;    ///< only if there is one of these, too
    ZTESign mUnless = ZTESign::Count;  ///< not if there is one of these
    bool mIsOfFabric = false;          ///< not if it is in two fabrics at once
};

/// What has to be as it was for an incident to close. Those of no state close after ten minutes of silence.
enum class ZTERestored : unsigned char { Silence, Links, Ports, Targets, Paths, Stalls, Agent };

struct ZTSClassRow {
    ZTEIncidentClass mClass;
    bool mIsOn;
    std::array<ZTSOpening, 10> mOpenings;  ///< the first that is met says what it is; Count: unused
    ZTERestored mRestored;
    unsigned int mPatience;  ///< seconds that its state has to last; 0: none
    bool mHasBaseline;       ///< what is ordinary here is none
    /// With {places} that are filled in (IncidentSentence.cpp), [one|many] for the number of {where}, and
    /// (lasting|past) for a state that lasts and one that is over.
    const char* mpSentence;
    const char* mpSuggestion;
};

/// Numbers that are of no class. Seconds, unless it says something else.
struct ZTSIncidentTimes {
    unsigned int mSettle = 3;         ///< so long is waited for what comes late before anything is decided
    unsigned int mTell = 20;          ///< behind its begin it is told: by then what hides behind it shows
    unsigned int mSkew = 2;           ///< so far the clocks of two sources may be apart
    unsigned int mJoin = 120;         ///< signs at one place that are no farther apart are one problem
    unsigned int mQuiet = 60;         ///< without signs: quiet
    unsigned int mClose = 600;        ///< without signs: closed, if nothing is amiss
    unsigned int mReopen = 3600;      ///< within that time behind its end it is opened again
    unsigned int mSeries = 604800;    ///< within that time the next of a kind is one of its series
    unsigned int mBaselineDays = 7;   ///< the median of so many days is ordinary
    unsigned int mBaselineLeast = 3;  ///< days that have to be known
    unsigned int mBaselineTimes = 5;  ///< so many times what is ordinary is an incident
    unsigned int mChanges = 604800;   ///< changes of so long before are told beside it
    unsigned int mMostChanges = 100;  ///< of them, the newest
};

struct ZTSIncidentRules {
    std::vector<ZTSClassRow> mClasses;  ///< in the order in which they are tried: the first that fits is it
    ZTSIncidentTimes mTimes;

    const ZTSClassRow& operator[](ZTEIncidentClass aClass) const;
};
/// As they are unless a site says something else.
const ZTSIncidentRules& getDefaultRules();

/// A line of a site's configuration: "overload off", "overload queue_full=200/60" (so many within so many
/// seconds), "redundancy_lost patience=900", "times close=300"; several such words may stand in one line.
/// Throws std::runtime_error with one line: nothing has changed then.
void applyRule(ZTSIncidentRules& arRules, std::string_view aLine);
