// What the host tells, into the store.
#pragma once

#include "MeasureTables.h"
#include "StorageTables.h"
#include "StoreBatch.h"
#include "StoreRequest.h"
#include "TotalsTables.h"

class ZTCHostTables {
  public:
    ZTCHostTables(SQLite::Database& arDatabase, ZTCTotalsTables& arTotals);

    /// What a batch has of it. Its changes are there by now: they tell when something has become what it is.
    void write(const ZTSStoreBatch& acrBatch, ZTNanoseconds aNow);
    /// What the store has from before.
    void load(ZTSStoreStart& arStart);
    bool hasRequests() { return mHasRequests.findNumber().has_value(); }
    /// What is asked for, and is done from now on.
    std::vector<ZTSStoreRequest> takeRequests(ZTNanoseconds aNow);
    /// The transaction has failed.
    void forget();
    /// Rows of the table measured have gone.
    void forgetMeasured() { mMeasures.forget(); }

  private:
    struct KnownFpin {
        std::int64_t mId = 0;
        ZTSFpin mFpin;
    };
    void writeFpin(const ZTSFpin& acrFpin);
    void noteLongest(const char* apName, ZTNanoseconds aLength);
    void writeStall(const ZTSStall& acrStall);
    void writeBlindSpots(const std::vector<ZTSBlindSpot>& acrSpots);
    void writeWindows(const std::vector<ZTSWindow>& acrWindows);
    void writeFacts(const ZTSHostFacts& acrFacts);

    SQLite::Database& mrDatabase;
    ZTCTotalsTables& mrTotals;
    ZTCStorageTables mStorage;
    ZTCMeasureTables mMeasures;
    std::vector<KnownFpin> mFpins;  ///< the last ones, which may be told again
    ZTCStatement mAddFpin, mGrowFpin, mSetStall, mLongest, mNoBlindSpots, mAddBlindSpot, mNoWindows,
        mAddWindow, mSetFact, mHasRequests, mFindRequests, mSetDone;
};
