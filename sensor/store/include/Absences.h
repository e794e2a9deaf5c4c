// When nobody collected.
#pragma once

#include "StoreReader.h"

/// When vrx-sn, or the agent, did not run.
struct ZTSAbsence {
    ZTNanoseconds mFirst = 0;
    ZTNanoseconds mLast = 0;
    bool mIsAgent = false;  ///< else vrx-sn
};
/// Those that overlap a time, up to aNow at most.
std::vector<ZTSAbsence> readAbsences(ZTCStoreReader& arReader, ZTNanoseconds aSince, ZTNanoseconds aUntil,
                                     ZTNanoseconds aNow);
