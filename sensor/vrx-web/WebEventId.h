// How an event of the stream is known again: by the place of the history that it stands for.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "StoreReader.h"

/// A plain value. "STORE-CLOSED-LAST-TIME-RUN-NUMBER": hex digits, but for nobody else to read.
struct ZTSWebEventId {
    std::uint32_t mStore = 0;     ///< of its UUID
    std::uint64_t mClosedTo = 0;  ///< records up to this one were had as they are for ever
    std::uint64_t mLast = 0;      ///< and up to this one as they were then
    std::uint64_t mSeconds = 0;   ///< since 1970: incidents were had as of then
    std::uint64_t mRun = 0;       ///< of the program that has counted; 0: none has
    std::uint64_t mNumber = 0;    ///< of the piece

    std::string toText() const;
    /// Nothing for what is none.
    static std::optional<ZTSWebEventId> fromText(std::string_view aText);

    /// Behind a record, and from there on.
    void pass(const ZTSStoredRecord& acrRecord);
    /// Of records; of all else that there is now.
    ZTSStorePlace toPlace(ZTSStorePlace aNow) const;
};

/// The first part of a store's UUID.
std::uint32_t shortStoreId(const std::string& acrUuid);
