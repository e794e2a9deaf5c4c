// A case while it is found: what the story is told of, and what the finder has to know besides.
#pragma once

#include <limits>

#include "IncidentFinderBook.h"

inline constexpr ZTNanoseconds ZTNever = std::numeric_limits<ZTNanoseconds>::max();

/// A sign that has come, without what is known of it already.
struct ZTSNewSign {
    ZTNanoseconds mKey = 0;  ///< when it is looked at
    ZTSKnownSign* mpSign = nullptr;
    ZTNanoseconds mFirst = 0;
    ZTNanoseconds mLast = 0;
    std::uint64_t mEvents = 0;
    std::uint32_t mLeft = 0;
    std::uint32_t mTotal = 0;
};

/// How bad it was when somebody was told last.
struct ZTSHurt {
    unsigned int mTenths = 10;  ///< of paths that are left, of the map that has the fewest
    bool mIsNoneLeft = false;
    bool mIsLost = false;                ///< redundancy_lost
    std::set<std::string> mStandsStill;  ///< disks that complete nothing, and maps without a path

    bool isWorseThan(const ZTSHurt& acrOther) const;
    void unite(const ZTSHurt& acrOther);
};

struct ZTSOpenCase {
    /// Beside a cluster of the case.
    struct Cluster {
        std::vector<ZTSKnownSign*> mSigns;  ///< as its sums
        std::vector<ZTSPlace*> mAnchors;    ///< where a sign says by itself that the trouble is
        std::set<ZTSWwn> mInitiators;       ///< the same, of links: what they see beyond is explained
    };

    ZTSCase mCase;
    std::vector<Cluster> mClusters;
    std::uint64_t mNumber = 0;  ///< in the order in which they were made
    ZTSIncident mIncident;      ///< as it was told last; no id: it is none yet
    bool mHasState = false;     ///< something of it can be as it was
    ZTNanoseconds mRestored = 0;
    ZTNanoseconds mChecked = 0;  ///< what time alone changes was looked at then
    ZTNanoseconds mKnownTo = 0;  ///< what was looked at up to then is in it: from before a new start
    ZTNanoseconds mDeadline = ZTNever;
    ZTNanoseconds mTellAt = ZTNever;
    bool mIsStale = false;     ///< its class has to be found anew
    bool mIsChanged = false;   ///< since the last news
    bool mIsTold = false;      ///< somebody knows of it
    bool mIsReopened = false;  ///< and that has to be told
    ZTNanoseconds mToldAt = 0;
    ZTSHurt mToldHurt;
    std::set<ZTEIncidentClass> mClasses;               ///< that it had
    ZTSFocus mFocus;                                   ///< that it opened with
    std::set<std::pair<ZTSWwn, ZTSWwn>> mPortsOfHits;  ///< of which it is known what they hit

    bool isIncident() const { return mIncident.mId != 0; }
    bool isClosed() const { return mIncident.mState == ZTEIncidentState::Closed; }
    bool isAmiss() const;
    /// There was enough of this kind to open something.
    bool hasReached(ZTESign aSign) const;
    ZTSHurt findHurt() const;
};

/// What a state means for a case. A map's total is taken wherever it comes from.
void applyState(ZTSOpenCase& arCase, const ZTSNewSign& acrNew, ZTNanoseconds aPatience);
/// The other half of one. False: the case has no such state.
bool applyBack(ZTSOpenCase& arCase, const ZTSNewSign& acrNew);
/// Whether it still is as this sign says.
bool isHeld(const ZTSCase& acrCase, const ZTSSign& acrSign);
/// Whether paths of a map are gone because of it.
bool missesPaths(const ZTSOpenCase& acrCase, const std::string& acrMap);
/// The state that a sign ends; else the sign.
ZTESign stateOf(ZTESign aSign);
/// The paths that are left are all that there are to be.
void acceptPaths(ZTSOpenCase& arCase, ZTNanoseconds aTime);

/// When time alone changes something next.
ZTNanoseconds findDeadline(const ZTSOpenCase& acrCase, const ZTSIncidentRules& acrRules,
                           ZTNanoseconds aForget);
/// When it closes, if nothing comes; never while something is not as it was.
ZTNanoseconds findClose(const ZTSOpenCase& acrCase, const ZTSIncidentTimes& acrTimes);
