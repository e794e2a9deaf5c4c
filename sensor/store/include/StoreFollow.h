// Reads what comes into the history.
#pragma once

#include "StoreReader.h"

/// What comes behind a place, in the order in which it came: a record once when it is there, and if it was
/// open then, once more when it has closed; and so a stall, when it is over.
class ZTCStoreFollow {
  public:
    struct News {
        std::vector<ZTSStoredRecord> mRecords;
        std::vector<ZTSLoss> mLosses;
        std::vector<ZTSChange> mChanges;
        std::vector<ZTSStoredFpin> mFpins;
        std::vector<ZTSStoredStall> mStalls;
    };

    ZTCStoreFollow(ZTSHistoryFilter aFilter, ZTSStorePlace aPlace);

    /// Adds a slice of it. False: there is nothing more for now. A reader of another store begins there with
    /// its first record.
    bool read(ZTCStoreReader& arReader, News& arNews);

  private:
    bool readRecords(ZTCStoreReader& arReader, ZTCStoreSlice& arSlice,
                     std::vector<ZTSStoredRecord>& arRecords);
    void readEnds(ZTCStoreReader& arReader, std::vector<ZTSStoredStall>& arStalls);

    const ZTSHistoryFilter mFilter;
    ZTSStorePlace mPlace;
};
