// What somebody asks vrx-sn for: a row of the store, which vrx-sn acts on.
#pragma once

#include <string>

#include "SensorTime.h"

struct ZTSStoreRequest {
    std::uint64_t mId = 0;
    ZTNanoseconds mTime = 0;  ///< when it was asked
    std::string mWho;         ///< the user: "root", or who became root: "mueller"
    std::string mWhat;        ///< "note"
    std::string mSubject;     ///< what it is about; empty: nothing in particular
    std::string mText;

    /// All that vrx-sn knows to do.
    bool isNote() const { return mWhat == "note"; }
};

/// Adds it, with the next id, beside whoever writes the store. The path's own rights decide who may. Waits
/// for the store for some seconds. Throws ZTCStoreError.
void addStoreRequest(const std::string& acrPath, const ZTSStoreRequest& acrRequest);
