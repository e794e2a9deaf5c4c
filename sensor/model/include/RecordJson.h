// The JSON of records, losses and changes (docs/json.md): one writer for all programs.
#pragma once

#include <initializer_list>
#include <span>
#include <utility>

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
    bool mIsOpen;                 ///< it may still grow
    std::uint64_t mIncident = 0;  ///< that it belongs to; 0: none
};

// Each writes members into an object that has been begun.
void putRecord(ZTCJsonWriter& arJson, const ZTSRecordView& acrRecord);
void putPlace(ZTCJsonWriter& arJson, const ZTSRecordPlace& acrPlace);
void putLoss(ZTCJsonWriter& arJson, const ZTSLoss& acrLoss, std::string_view aHost);
/// With the ports that its name names.
void putChange(ZTCJsonWriter& arJson, const ZTSChange& acrChange, const ZTPortLabels& acrLabels,
               std::string_view aHost);
/// What the names file says of a port: its name, array, controller and switch port.
void putLabel(ZTCJsonWriter& arJson, const ZTSWwn& acrPort, const ZTPortLabels& acrLabels);
/// Each under its key; null for an empty one.
void putTexts(ZTCJsonWriter& arJson, std::initializer_list<std::pair<const char*, std::string_view>> aTexts);

/// An object of a port's number and its label; null for none.
void putPort(ZTCJsonWriter& arJson, const std::optional<ZTSWwn>& acrPort, const ZTPortLabels& acrLabels);
void putPorts(ZTCJsonWriter& arJson, const std::vector<ZTSWwn>& acrPorts, const ZTPortLabels& acrLabels);

/// An object of a port's two names.
void putNames(ZTCJsonWriter& arJson, const ZTSPortNames& acrNames);
// Each under its key.
void putNumber(ZTCJsonWriter& arJson, const char* apKey, std::uint64_t aNumber);
void putList(ZTCJsonWriter& arJson, const char* apKey, const std::vector<std::string>& acrTexts);
/// Null for 0: it is not known.
void putMoment(ZTCJsonWriter& arJson, const char* apKey, ZTNanoseconds aTime);

/// A moment, or null beyond the year 9999.
void putTime(ZTCJsonWriter& arJson, const ZTSSensorTime& acrTime);
