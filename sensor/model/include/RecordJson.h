// The JSON of records, losses and changes (docs/json.md): one writer for all programs.
#pragma once

#include <span>

#include "JsonWriter.h"
#include "Ports.h"
#include "Record.h"

/// A record, wherever it lies.
struct ZTSRecordView {
    const ZTSPortNames& mrInitiator;
    std::uint8_t mCategory;
    std::uint8_t mSubcategory;
    const std::optional<ZTSPortNames>& mrTarget;
    std::uint64_t mOccurrences;
    ZTSSensorTime mFirst;
    ZTSSensorTime mLast;
    std::span<const std::uint8_t> mData;
};
ZTSRecordView viewOf(const ZTSRecord& acrRecord);

/// What the history says of a record beyond that.
struct ZTSRecordPlace {
    std::uint64_t mId;
    std::string_view mHost;
    const ZTSSeries& mrSeries;
    const ZTPortLabels& mrLabels;
    bool mIsOpen;  ///< it may still grow
};

// Each writes members into an object that has been begun.
void putRecord(ZTCJsonWriter& arJson, const ZTSRecordView& acrRecord);
void putPlace(ZTCJsonWriter& arJson, const ZTSRecordPlace& acrPlace);
void putLoss(ZTCJsonWriter& arJson, const ZTSLoss& acrLoss, std::string_view aHost);
void putChange(ZTCJsonWriter& arJson, const ZTSChange& acrChange, std::string_view aHost);

/// An object of a port's two names.
void putNames(ZTCJsonWriter& arJson, const ZTSPortNames& acrNames);
/// A moment, or null beyond the year 9999.
void putTime(ZTCJsonWriter& arJson, const ZTSSensorTime& acrTime);
