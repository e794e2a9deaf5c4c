// What the finder knows of signs: each that says something else once, and where it points.
#pragma once

#include <memory>
#include <unordered_map>

#include "IncidentCase.h"
#include "Ports.h"

struct ZTSOpenCase;
struct ZTSTally;
struct ZTSKnownSign;

/// Where signs point. It is found by its focus, and finds what has to do with it.
struct ZTSPlace {
    ZTSFocus mFocus;
    std::vector<ZTSOpenCase*> mCases;  ///< that have a sign here
    std::vector<ZTSKnownSign*> mSigns;
};

/// What came and belongs to no case yet: of one second.
struct ZTSWaiting {
    ZTNanoseconds mFirst = 0;
    ZTNanoseconds mLast = 0;
    std::uint64_t mEvents = 0;
};

/// A sign without its time: what comes again and again is found with one look and costs no memory.
struct ZTSKnownSign {
    ZTSSign mSign;
    const ZTSSignRow* mpRow = nullptr;
    std::uint64_t mHash = 0;
    std::vector<ZTSPlace*> mPlaces;  ///< all of those below
    ZTSPlace* mpInitiator = nullptr;
    ZTSPlace* mpRemote = nullptr;
    ZTSPlace* mpController = nullptr;
    ZTSPlace* mpArray = nullptr;
    std::vector<ZTSPlace*> mDisks;     ///< what it is about, and the maps beneath
    std::vector<ZTSWaiting> mWaiting;  ///< the oldest first
    ZTSTally* mpTally = nullptr;       ///< null: such signs are not counted
    bool mHasTally = false;            ///< that is known
    ZTSOpenCase* mpCase = nullptr;     ///< the last one that took it, and where in it
    std::uint32_t mCluster = 0;
    std::uint32_t mSum = 0;
    std::uint32_t mHolders = 0;  ///< cases and queues that point at it
    ZTNanoseconds mUsed = 0;     ///< its last time

    bool hasPorts() const { return mpInitiator != nullptr || mpRemote != nullptr; }
    bool isState() const { return mpRow->mWeight == ZTEWeight::State; }
    bool isWeak() const { return mpRow->mWeight == ZTEWeight::Weak; }
};

/// Pointers stay good until forget() says otherwise: of what has no holder.
class ZTCSignBook {
  public:
    /// The sign with all but its times, events and numbers of paths.
    ZTSKnownSign& find(const ZTSSign& acrSign);
    ZTSPlace* findPlace(const ZTSFocus& acrFocus);
    /// Those that have no holder and were last seen before that; and the oldest, if there are too many.
    void forget(ZTNanoseconds aBefore);
    /// Where signs point may be something else with other names.
    void setLabels(const ZTPortLabels& acrLabels);
    const ZTPortLabels& getLabels() const { return mLabels; }
    /// There are more than there should be: forget() is due.
    bool isFull() const;
    std::size_t getBytes() const;

    /// Each sign that is known.
    template <class Function>
    void each(const Function& acrDo) {
        for (auto& [lHash, lrpSign] : mSigns) {
            acrDo(*lrpSign);
        }
    }

  private:
    using Signs = std::unordered_multimap<std::uint64_t, std::unique_ptr<ZTSKnownSign>>;

    ZTSPlace* placeOf(ZTSKnownSign& arSign, ZTSFocus aFocus);
    void findPlaces(ZTSKnownSign& arSign);
    void leavePlaces(ZTSKnownSign& arSign);
    void forgetUnused(ZTNanoseconds aBefore);

    Signs mSigns;
    std::map<ZTSFocus, ZTSPlace> mPlaces;
    ZTPortLabels mLabels;
};
