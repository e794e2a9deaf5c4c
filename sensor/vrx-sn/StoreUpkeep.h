// What the store's thread does beside writing.
#pragma once

#include <chrono>
#include <functional>
#include <mutex>

#include "StoreWriter.h"

class ZTCSnFigures;
class ZTCServiceLog;
class ZTCStoreTrouble;

/// Removes what is too old or too much, takes what somebody asks for, and shows how large the store is. One
/// thread, but setKeep().
class ZTCStoreUpkeep {
  public:
    /// Is asked to do what somebody asks for, if it is no note; and whether the store has marked an incident
    /// with it. False: that is not known.
    using Asked = std::function<bool(const ZTSStoreRequest&, bool)>;

    ZTCStoreUpkeep(const ZTSStoreOptions& acrOptions, ZTCSnFigures& arFigures, ZTCServiceLog& arLog,
                   ZTCStoreTrouble& arTrouble, Asked aAsked);

    /// How long and how much is kept, from now on.
    void setKeep(unsigned int aDays, std::uint64_t aBytes);
    /// Another writer, which may know nothing of what was set.
    void begin(ZTCStoreWriter& arWriter);
    /// Until there is something to do; 0: there is.
    std::chrono::milliseconds getWait();
    /// It is in the store: counted.
    void noteWritten(const ZTSStoreBatch& acrBatch);
    /// What is due of it. Throws ZTCStoreError.
    void work(ZTCStoreWriter& arWriter);

  private:
    using Clock = std::chrono::steady_clock;

    bool tellKeep(ZTCStoreWriter& arWriter);
    void takeRequests(ZTCStoreWriter& arWriter);
    void showSizes(const ZTCStoreWriter& acrWriter);

    ZTCSnFigures& mrFigures;
    ZTCServiceLog& mrLog;
    ZTCStoreTrouble& mrTrouble;
    const Asked mAsked;
    std::mutex mLock;  // of what follows
    unsigned int mDays;
    std::uint64_t mBytes;
    bool mIsKeepNew = false;
    // The store's thread alone.
    Clock::time_point mNextRetirement;
    Clock::time_point mNextRequests;
    Clock::time_point mSizesShown;
};
