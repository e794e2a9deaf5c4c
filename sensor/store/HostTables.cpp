#include "HostTables.h"

#include <algorithm>
#include <cstdlib>

#include "HostRows.h"

namespace {

// As long as those of a moment are one.
constexpr ZTNanoseconds sSameFor = 10 * ZTSecond;
constexpr std::size_t sMostFpins = 256;

}  // namespace

ZTCHostTables::ZTCHostTables(SQLite::Database& arDatabase, ZTCTotalsTables& arTotals)
    : mrDatabase(arDatabase),
      mrTotals(arTotals),
      mStorage(arDatabase),
      mMeasures(arDatabase),
      mAddFpin(arDatabase,
               "INSERT INTO fpins (first, last, times, initiator, fabric, descriptor, event, severity, "
               "detecting, attached, modifier, threshold, period, count, ports) VALUES (?, ?, ?, ?, ?, ?, ?, "
               "?, ?, ?, ?, ?, ?, ?, ?) RETURNING id"),
      mGrowFpin(arDatabase,
                "UPDATE fpins SET last = ?2, times = times + ?3, count = count + ?4 WHERE id = ?1"),
      mSetStall(arDatabase,
                "INSERT INTO stalls (first, last, over, disk, name, hits, in_flight, kind) VALUES (?, ?, ?, "
                "?, ?, ?, ?, ?) ON CONFLICT DO UPDATE SET last = excluded.last, over = excluded.over, name = "
                "excluded.name, hits = excluded.hits, in_flight = max(in_flight, excluded.in_flight), kind = "
                "excluded.kind"),
      mLongest(arDatabase,
               "INSERT INTO meta VALUES (?, ?) ON CONFLICT DO UPDATE SET value = max(value, excluded.value) "
               "WHERE value < excluded.value"),
      mNoBlindSpots(arDatabase, "DELETE FROM blind_spots"),
      mAddBlindSpot(arDatabase, "INSERT INTO blind_spots VALUES (?, ?, ?, ?)"),
      mNoWindows(arDatabase, "DELETE FROM windows"),
      mAddWindow(arDatabase, "INSERT INTO windows VALUES (?, ?, ?, ?)"),
      mSetFact(arDatabase, "INSERT OR REPLACE INTO facts VALUES (?, ?)"),
      mHasRequests(arDatabase, "SELECT 1 FROM requests WHERE done = 0 LIMIT 1"),
      mFindRequests(arDatabase, (std::string(ZTRequestColumns) + " LIMIT ?").c_str()),
      mSetDone(arDatabase, "UPDATE requests SET done = ?2 WHERE id = ?1") {}

void ZTCHostTables::write(const ZTSStoreBatch& acrBatch, ZTNanoseconds aNow) {
    const ZTSHostNews& lrNews = acrBatch.mHost;
    for (const ZTSFpin& lrFpin : lrNews.mFpins) {
        writeFpin(lrFpin);
        mrTotals.countFpin(lrFpin);
    }
    for (const ZTSStall& lrStall : lrNews.mStalls) {
        writeStall(lrStall);
    }
    mMeasures.write(lrNews.mMeasures);
    if (lrNews.mStorage) {
        mStorage.write(*lrNews.mStorage, aNow);
    }
    if (lrNews.mBlindSpots) {
        writeBlindSpots(*lrNews.mBlindSpots);
    }
    if (lrNews.mWindows) {
        writeWindows(*lrNews.mWindows);
    }
    if (acrBatch.mFacts) {
        writeFacts(*acrBatch.mFacts);
    }
}

void ZTCHostTables::load(ZTSStoreStart& arStart) {
    const ZTSStoredStorage lStored = mStorage.load(arStart.mLastWrite);
    if (lStored.mTime != 0) {
        arStart.mStorage = lStored.listHere();
    }
    for (const ZTSStoredMap& lrMap : lStored.mMaps) {
        lrMap.mIsHere ? void() : arStart.mMapsGone.push_back(lrMap.mMap);
    }
    arStart.mFacts = readStoredFacts(mrDatabase);
    SQLite::Statement lStall(mrDatabase, std::string(ZTStallColumns) + " WHERE over = 0 ORDER BY first");
    while (lStall.executeStep()) {
        arStart.mStalls.push_back(readStoredStall(lStall).mStall);
    }
}

void ZTCHostTables::forget() {
    mStorage.forget();
    mMeasures.forget();
    mFpins.clear();
}

// What goes on, comes in one batch after the other.
void ZTCHostTables::writeFpin(const ZTSFpin& acrFpin) {
    std::erase_if(mFpins, [&](const KnownFpin& acrKnown) {  // also where the clock was set back
        return std::abs(acrFpin.mFirst - acrKnown.mFpin.mFirst) >= sSameFor;
    });
    const auto lAt = std::find_if(mFpins.begin(), mFpins.end(), [&](const KnownFpin& acrKnown) {
        return acrKnown.mFpin.isSameAs(acrFpin) && acrFpin.mFirst >= acrKnown.mFpin.mFirst;
    });
    if (lAt != mFpins.end()) {
        lAt->mFpin.mLast = std::max(lAt->mFpin.mLast, acrFpin.mLast);
        if (mGrowFpin.run(lAt->mId, lAt->mFpin.mLast, acrFpin.mTimes, acrFpin.mCount) != 0) {
            noteLongest("longest_fpin", lAt->mFpin.mLast - lAt->mFpin.mFirst);
            return;
        }
        mFpins.erase(lAt);  // its row has been retired
    }
    noteLongest("longest_fpin", acrFpin.mLast - acrFpin.mFirst);
    const std::string lPorts = portsText(acrFpin.mPorts);
    const auto lId =
        *mAddFpin.findNumber(acrFpin.mFirst, acrFpin.mLast, acrFpin.mTimes, portText(acrFpin.mInitiator),
                             acrFpin.mFabric, acrFpin.mDescriptor, acrFpin.mEvent, acrFpin.mSeverity,
                             portText(acrFpin.mDetecting), portText(acrFpin.mAttached), acrFpin.mModifier,
                             acrFpin.mThreshold, acrFpin.mPeriod, acrFpin.mCount, lPorts);
    if (mFpins.size() < sMostFpins) {
        mFpins.push_back({lId, acrFpin});
    }
}

// So a reader knows where what overlaps a time can begin.
void ZTCHostTables::noteLongest(const char* apName, ZTNanoseconds aLength) {
    mLongest.run(std::string(apName), std::max<ZTNanoseconds>(aLength, 1));
}

void ZTCHostTables::writeStall(const ZTSStall& acrStall) {
    mSetStall.run(acrStall.mFirst, acrStall.mLast, acrStall.mIsOver, acrStall.mDisk, acrStall.mName,
                  acrStall.mHits, acrStall.mInFlight, acrStall.mKind);
    noteLongest("longest_stall", acrStall.mLast - acrStall.mFirst);
}

void ZTCHostTables::writeBlindSpots(const std::vector<ZTSBlindSpot>& acrSpots) {
    mNoBlindSpots.run();
    for (const ZTSBlindSpot& lrSpot : acrSpots) {
        mAddBlindSpot.run(lrSpot.mWhat, lrSpot.mWhere, lrSpot.mWhy, lrSpot.mIsSure);
    }
}

void ZTCHostTables::writeWindows(const std::vector<ZTSWindow>& acrWindows) {
    mNoWindows.run();
    for (const ZTSWindow& lrWindow : acrWindows) {
        mAddWindow.run(lrWindow.mWhat, lrWindow.mFirst, lrWindow.mLast, lrWindow.mText);
    }
}

void ZTCHostTables::writeFacts(const ZTSHostFacts& acrFacts) {
    for (const auto& [lpName, lpText] : ZTFactTexts) {
        mSetFact.run(std::string(lpName), acrFacts.*lpText);
    }
    mSetFact.run(std::string(ZTFactBooted), acrFacts.mBooted);
}

std::vector<ZTSStoreRequest> ZTCHostTables::takeRequests(ZTNanoseconds aNow) {
    constexpr int lMost = 100;
    std::vector<ZTSStoreRequest> lRequests;
    mFindRequests.forEach([&](SQLite::Statement& arRow) { lRequests.push_back(readStoredRequest(arRow)); },
                          lMost);
    for (const ZTSStoreRequest& lrRequest : lRequests) {
        mSetDone.run(lrRequest.mId, aNow);
    }
    return lRequests;
}
