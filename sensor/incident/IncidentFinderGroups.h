// Which signs belong together: joins each to the case it is a part of, opens those that are none's, and makes
// one of two that turn out to be the same.
#pragma once

#include <utility>

#include "IncidentFinderMaps.h"
#include "IncidentFinderRelation.h"

/// Two that turned out to be one.
struct ZTSMerged {
    ZTSIncident mYounger;
    ZTSCase mCase;  ///< its own, as it was
    std::uint64_t mInto = 0;
};

/// Throws std::bad_alloc.
class ZTCCaseGroups {
  public:
    using Cases = std::map<std::uint64_t, std::unique_ptr<ZTSOpenCase>>;  // by number

    /// All of them live as long.
    ZTCCaseGroups(ZTCSignBook& arBook, const ZTCFinderMaps& acrMaps, const ZTSIncidentRules& acrRules)
        : mrBook(arBook), mrMaps(acrMaps), mrRules(acrRules) {}

    /// aIsActive: it could open a case by itself. Null: it waits.
    ZTSOpenCase* take(const ZTSNewSign& acrNew, bool aIsActive);
    /// The other half of a state: all cases that have it, and one that has it as its sign.
    void takeBack(const ZTSNewSign& acrNew);
    /// Two that miss paths of one map for so long that neither is a symptom are one.
    void tieLost(ZTSOpenCase& arCase);

    /// One that was known before; with its signs, but for those beside.
    ZTSOpenCase& restore(std::unique_ptr<ZTSOpenCase> apCase);
    void remove(ZTSOpenCase& arCase);
    /// What has waited since before then belongs to nothing any more.
    void setForgotten(ZTNanoseconds aBefore) { mForgotten = aBefore; }
    void forgetWaiting();
    /// Where signs point has changed.
    void index();

    /// Something else than its times and sums is new.
    void setStale(ZTSOpenCase& arCase);
    Cases& getCases() { return mCases; }
    const Cases& getCases() const { return mCases; }
    /// Those of which more than times and sums is new.
    /// The one that was made first; null: there is none.
    ZTSOpenCase* nextStale();
    std::vector<ZTSMerged> takeMerged() { return std::exchange(mMerged, {}); }

  private:
    struct Candidate {
        ZTSOpenCase* mpCase = nullptr;
        std::size_t mCluster = 0;
        ZTERelation mRelation = ZTERelation::None;
    };
    using Candidates = std::vector<Candidate>;

    bool isKnownThere(const ZTSNewSign& acrNew, bool aIsActive) const;
    static std::size_t findCluster(const ZTSOpenCase& acrCase, const ZTSNewSign& acrNew);
    ZTSOpenCase* takeMap(const ZTSNewSign& acrNew);
    ZTSOpenCase* takeStall(const ZTSNewSign& acrNew);
    Candidate findOverMap(const ZTSNewSign& acrNew, const std::string& acrMap);

    bool mayTake(const ZTSOpenCase& acrCase, const ZTSNewSign& acrNew, bool aIsActive) const;
    Candidates findCandidates(const ZTSNewSign& acrNew, bool aIsActive) const;
    ZTSOpenCase& open(const ZTSNewSign& acrNew);
    void join(ZTSOpenCase& arCase, std::size_t aCluster, const ZTSNewSign& acrNew, bool aIsActive);
    void goOn(ZTSOpenCase& arCase, ZTNanoseconds aLast);
    void addSum(ZTSOpenCase& arCase, std::size_t aCluster, const ZTSNewSign& acrNew, bool aIsActive);
    void adopt(ZTSOpenCase& arCase, std::size_t aCluster, const ZTSKnownSign& acrSign);
    void adoptWaiting(ZTSOpenCase& arCase, std::size_t aCluster, ZTSKnownSign& arSign);
    void addPlace(ZTSOpenCase& arCase, std::size_t aCluster, ZTSKnownSign& arSign, bool aIsActive);
    void wait(const ZTSNewSign& acrNew) const;
    /// Into the older one.
    ZTSOpenCase& merge(ZTSOpenCase& arOne, ZTSOpenCase& arOther);
    /// The same of two that have a part of one cluster each.
    ZTSOpenCase& merge(ZTSKnownSign& arOne, const Candidate& acrOther);
    void mergeClusters(ZTSOpenCase& arCase, std::size_t aInto, std::size_t aFrom);
    void tieDownLinks(const ZTSNewSign& acrNew);
    ZTSKnownSign* findDownLink(const ZTSWwn& acrPort, ZTNanoseconds aTime, ZTNanoseconds aAtOnce);
    void sortClusters(ZTSOpenCase& arCase);
    void leavePlaces(ZTSOpenCase& arCase);
    bool isThere(const ZTSOpenCase* apCase) const;
    ZTNanoseconds patience() const;

    ZTCSignBook& mrBook;
    const ZTCFinderMaps& mrMaps;
    const ZTSIncidentRules& mrRules;
    Cases mCases;
    std::uint64_t mNextNumber = 1;
    ZTNanoseconds mForgotten = 0;
    std::vector<ZTSOpenCase*> mStale;
    std::vector<ZTSMerged> mMerged;
};
