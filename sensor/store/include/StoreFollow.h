// Reads what comes into the history.
#pragma once

#include "StoreReader.h"

/// What comes behind a place, in the order in which it came: a record once when it is there, and if it was
/// open then, once more when it has closed.
class ZTCStoreFollow {
  public:
    struct News {
        std::vector<ZTSStoredRecord> mRecords;
        std::vector<ZTSLoss> mLosses;
        std::vector<ZTSChange> mChanges;
    };

    ZTCStoreFollow(ZTSHistoryFilter aFilter, ZTSStorePlace aPlace);

    /// Adds a slice of it. False: there is nothing more for now. A reader of another store begins there with
    /// its first record.
    bool read(ZTCStoreReader& arReader, News& arNews);

  private:
    bool readRecords(ZTCStoreReader& arReader, ZTCStoreSlice& arSlice,
                     std::vector<ZTSStoredRecord>& arRecords);

    const ZTSHistoryFilter mFilter;
    ZTSStorePlace mPlace;
};
