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

/// So often at one place, within so many seconds: then it opens an incident.
struct ZTSOpening {
    ZTESign mSign = ZTESign::Count;
    unsigned int mTimes = 1;
    unsigned int mWithin = 60;
    ZTESign mWith = ZTESign::Count;    ///< only if there is one of these, too
    ZTESign mUnless = ZTESign::Count;  ///< not if there is one of these
};

/// What has to be as it was for an incident to close. Those of no state close after ten minutes of silence.
enum class ZTERestored : unsigned char { Silence, Links, Ports, Targets, Paths, Stalls, Agent };

struct ZTSClassRow {
    ZTEIncidentClass mClass;
    bool mIsOn;
    std::array<ZTSOpening, 6> mOpenings;  ///< one of them is enough; unused ones are of ZTESign::Count
    ZTERestored mRestored;
    unsigned int mPatience;  ///< seconds that its state has to last; 0: none
    bool mHasBaseline;       ///< what is ordinary here is none
    const char* mpSentence;  ///< with {places}: docs/incidents.md
    const char* mpSuggestion;
};

/// Numbers that are of no class. Seconds.
struct ZTSIncidentTimes {
    unsigned int mSettle = 3;         ///< so long is waited for what comes late before anything is decided
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
};

struct ZTSIncidentRules {
    std::vector<ZTSClassRow> mClasses;  ///< in the order in which they are tried: the first that fits is it
    ZTSIncidentTimes mTimes;

    const ZTSClassRow& operator[](ZTEIncidentClass aClass) const;
};
/// As they are unless a site says something else.
const ZTSIncidentRules& getDefaultRules();

/// A line of a site's configuration: "overload off", "overload queue_full=200/60" (so many within so many
/// seconds), "redundancy_lost patience=900", "times close=300". Throws std::runtime_error with one line.
void applyRule(ZTSIncidentRules& arRules, std::string_view aLine);
