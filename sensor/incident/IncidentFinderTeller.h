// What has become of cases: which are incidents, in which state, of which series, and who is told.
#pragma once

#include "IncidentFinder.h"
#include "IncidentFinderGroups.h"
#include "IncidentStory.h"

/// Throws std::bad_alloc.
class ZTCCaseTeller {
  public:
    /// All of them live as long.
    ZTCCaseTeller(ZTCCaseGroups& arGroups, const ZTCFinderMaps& acrMaps, const ZTSIncidentRules& acrRules,
                  const ZTPortLabels& acrLabels)
        : mrGroups(arGroups), mrMaps(acrMaps), mrRules(acrRules), mrLabels(acrLabels) {}

    void setNextId(std::uint64_t aNextId) { mNextId = std::max(mNextId, aNextId); }
    void setWindows(std::vector<ZTSWindow> aWindows) { mWindows = std::move(aWindows); }
    void takeChange(const ZTSChange& acrChange);
    /// One from before a new start: how it ended is known of it.
    void restore(const ZTSIncident& acrIncident, ZTNanoseconds aKnownTo, ZTNanoseconds aForget);

    /// What is new of cases: class, hits, how bad it is.
    void lookAtStale(ZTNanoseconds aNow);
    /// The first moment at which time alone changes something.
    ZTNanoseconds getDeadline() const { return mDeadlines.empty() ? ZTNever : mDeadlines.begin()->first; }
    /// That moment has come.
    void lookAtDeadline(ZTNanoseconds aForget);
    bool ask(const ZTSIncidentAsk& acrAsk, ZTNanoseconds aNow);
    /// Something else decides by when cases change.
    void lookAtAll(ZTNanoseconds aNow, ZTNanoseconds aForget);

    std::vector<ZTSIncident> takeIncidents(ZTNanoseconds aNow);
    std::vector<ZTSIncidentTelling> takeTellings() { return std::exchange(mTellings, {}); }
    std::size_t getBytes() const;

  private:
    /// One that has ended, for those that are like it.
    struct Old {
        std::set<ZTEIncidentClass> mClasses;
        std::set<ZTSFocus> mPlaces;
        std::uint64_t mSeries = 0;
        ZTNanoseconds mClosed = 0;
    };

    ZTSStoryFrame frameAt(ZTNanoseconds aNow) const { return {mrRules, mrLabels, mChanges, aNow}; }
    void look(ZTSOpenCase& arCase, ZTNanoseconds aNow);
    void findHits(ZTSOpenCase& arCase) const;
    void open(ZTSOpenCase& arCase, ZTEIncidentClass aClass, ZTNanoseconds aNow);
    ZTNanoseconds firstTelling(const ZTSOpenCase& acrCase) const;
    ZTNanoseconds soonAfter(ZTNanoseconds aNow) const;
    void lookAtHurt(ZTSOpenCase& arCase, ZTNanoseconds aNow) const;
    void close(ZTSOpenCase& arCase, ZTNanoseconds aTime);
    void tell(ZTSOpenCase& arCase, ZTNanoseconds aNow);
    void addTelling(ZTSOpenCase& arCase, ZTSIncidentTelling::Why aWhy, bool aIsForCommand,
                    ZTNanoseconds aNow);
    void fill(ZTSOpenCase& arCase, ZTNanoseconds aNow) const;
    const ZTSWindow* findWindowOf(const ZTSOpenCase& acrCase, ZTNanoseconds aNow) const;
    std::uint64_t findSeries(const ZTSOpenCase& acrCase, ZTEIncidentClass aClass, ZTNanoseconds aNow) const;
    static Old oldOf(const ZTSOpenCase& acrCase);
    void schedule(ZTSOpenCase& arCase, ZTNanoseconds aForget);
    void remove(ZTSOpenCase& arCase, ZTNanoseconds aNow);
    void takeMerged(ZTNanoseconds aNow);

    ZTCCaseGroups& mrGroups;
    const ZTCFinderMaps& mrMaps;
    const ZTSIncidentRules& mrRules;
    const ZTPortLabels& mrLabels;
    std::vector<ZTSWindow> mWindows;
    std::deque<ZTSChange> mChanges;
    std::uint64_t mNextId = 1;
    std::set<std::pair<ZTNanoseconds, std::uint64_t>> mDeadlines;  // and the case's number
    std::deque<Old> mOld;
    std::map<std::uint64_t, ZTSIncident> mGone;  // that the news have to have, though the cases are no more
    std::vector<ZTSIncidentTelling> mTellings;
    ZTNanoseconds mForget = 0;
};
