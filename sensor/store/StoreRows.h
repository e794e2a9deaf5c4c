// Rows of the store as values.
#pragma once

#include "StoreReader.h"

/// What SQLite throws in it becomes the store's error.
template <class Call>
auto storeCall(const std::string& acrPath, const Call& acrCall) -> decltype(acrCall()) {
    try {
        return acrCall();
    } catch (const SQLite::Exception& lrError) {
        throw toStoreError(lrError, acrPath);
    }
}

inline std::string textAt(SQLite::Statement& arRow, int aAt) {
    return arRow.getColumn(aAt).getString();
}
inline std::uint64_t numberAt(SQLite::Statement& arRow, int aAt) {
    return static_cast<std::uint64_t>(arRow.getColumn(aAt).getInt64());
}
inline std::optional<std::uint64_t> numberOrNothingAt(SQLite::Statement& arRow, int aAt) {
    return arRow.isColumnNull(aAt) ? std::nullopt : std::optional(numberAt(arRow, aAt));
}
inline std::optional<std::uint32_t> smallNumberAt(SQLite::Statement& arRow, int aAt) {
    return arRow.isColumnNull(aAt) ? std::nullopt : std::optional(arRow.getColumn(aAt).getUInt());
}
/// All zeros for what is none.
inline ZTSWwn wwnAt(SQLite::Statement& arRow, int aAt) {
    return ZTSWwn::fromText(textAt(arRow, aAt)).value_or(ZTSWwn{});
}
/// The node's name, and behind it the port's.
inline ZTSPortNames readNames(SQLite::Statement& arRow, int aAt) {
    return {wwnAt(arRow, aAt), wwnAt(arRow, aAt + 1)};
}

/// What readLocalPort() and readRemotePort() take; more may stand behind.
inline constexpr char ZTPortColumns[] =
    "SELECT node, port, host, state, speed, type, port_id, fabric, symbolic_name, model, firmware, driver, here,"
    " seen";
inline constexpr char ZTRemotePortColumns[] =
    "SELECT node, port, initiator, state, roles, port_id, fabric, dev_loss_tmo, here, seen";

inline ZTSLocalPort readLocalPort(SQLite::Statement& arRow) {
    return {readNames(arRow, 0), textAt(arRow, 2),        textAt(arRow, 3), textAt(arRow, 4),
            textAt(arRow, 5),    smallNumberAt(arRow, 6), textAt(arRow, 7), textAt(arRow, 8),
            textAt(arRow, 9),    textAt(arRow, 10),       textAt(arRow, 11)};
}
inline ZTSRemotePort readRemotePort(SQLite::Statement& arRow) {
    return {wwnAt(arRow, 2),         readNames(arRow, 0), textAt(arRow, 3),       textAt(arRow, 4),
            smallNumberAt(arRow, 5), textAt(arRow, 6),    smallNumberAt(arRow, 7)};
}

inline constexpr char ZTSeriesColumns[] =
    "SELECT id, category, subcategory, initiator_node, initiator, fabric, remote, target_node, target,"
    " events, records, first, last FROM series";

inline ZTSStoredSeries readStoredSeries(SQLite::Statement& arRow) {
    ZTSStoredSeries lSeries{arRow.getColumn(0).getInt64(),
                            {},
                            numberAt(arRow, 9),
                            numberAt(arRow, 10),
                            arRow.getColumn(11),
                            arRow.getColumn(12)};
    ZTSSeries& lrSeries = lSeries.mSeries;
    lrSeries.mCategory = static_cast<std::uint8_t>(arRow.getColumn(1).getInt());
    lrSeries.mSubcategory = static_cast<std::uint8_t>(arRow.getColumn(2).getInt());
    lrSeries.mInitiator = readNames(arRow, 3);
    lrSeries.mFabric = textAt(arRow, 5);
    lrSeries.mRemote = ZTSWwn::fromText(textAt(arRow, 6));
    if (!textAt(arRow, 8).empty()) {
        lrSeries.mTarget = readNames(arRow, 7);
    }
    return lSeries;
}

/// What readStoredRecord() takes.
inline constexpr char ZTRecordColumns[] = "SELECT id, series, first, last, occurrences, data FROM records ";

inline void readStoredData(SQLite::Statement& arRow, ZTSRecord& arRecord) {
    const SQLite::Column lData = arRow.getColumn(5);
    const auto* const lpBytes = static_cast<const std::uint8_t*>(lData.getBlob());
    arRecord.mData.assign(lpBytes, lpBytes + lData.getBytes());
}

inline ZTSStoredRecord readStoredRecord(SQLite::Statement& arRow, const ZTSSeries& acrSeries,
                                        std::uint64_t aClosedTo) {
    ZTSStoredRecord lRecord;
    lRecord.mId = numberAt(arRow, 0);
    lRecord.mIsOpen = lRecord.mId > aClosedTo;
    lRecord.mRecord.mSeries = acrSeries;
    lRecord.mRecord.mFirst = arRow.getColumn(2).getInt64();
    lRecord.mRecord.mLast = arRow.getColumn(3).getInt64();
    lRecord.mRecord.mOccurrences = numberAt(arRow, 4);
    return lRecord;
}

// What differs between losses, changes and others that have a time. All begin with time, last and id.
template <class Item>
struct ZTSTimeRows;

template <>
struct ZTSTimeRows<ZTSLoss> {
    static constexpr char Columns[] = "SELECT first, last, id, source, reason, events, at_most FROM losses";
    static constexpr char Time[] = "first";
    static constexpr const char* Longest = "longest_loss";
    static constexpr const char* Open = nullptr;
    static std::uint64_t lastOf(const ZTSStorePlace& acrPlace) { return acrPlace.mLastLoss; }
    static ZTSLoss read(SQLite::Statement& arRow) {
        return {arRow.getColumn(0), arRow.getColumn(1),          textAt(arRow, 3),
                textAt(arRow, 4),   numberOrNothingAt(arRow, 5), numberOrNothingAt(arRow, 6)};
    }
    static bool isMeant(const ZTSHistoryFilter& /*acrFilter*/, const ZTSLoss& /*acrLoss*/) { return true; }
};

template <>
struct ZTSTimeRows<ZTSChange> {
    static constexpr char Columns[] =
        "SELECT time, time, id, what, name, event, attribute, before, after FROM changes";
    static constexpr char Time[] = "time";
    static constexpr const char* Longest = nullptr;  // a change has but one time
    static constexpr const char* Open = nullptr;
    static std::uint64_t lastOf(const ZTSStorePlace& acrPlace) { return acrPlace.mLastChange; }
    static ZTSChange read(SQLite::Statement& arRow) {
        return {arRow.getColumn(0), textAt(arRow, 3), textAt(arRow, 4), textAt(arRow, 5),
                textAt(arRow, 6),   textAt(arRow, 7), textAt(arRow, 8)};
    }
    static bool isMeant(const ZTSHistoryFilter& acrFilter, const ZTSChange& acrChange) {
        return acrFilter.takes(acrChange);
    }
};

template <class Item>
void takeStoredRow(SQLite::Statement& arRow, const ZTSHistoryFilter& acrFilter, std::vector<Item>& arItems) {
    Item lItem = ZTSTimeRows<Item>::read(arRow);
    if (acrFilter.takes(arRow.getColumn(0).getInt64(), arRow.getColumn(1).getInt64()) &&
        ZTSTimeRows<Item>::isMeant(acrFilter, lItem)) {
        arItems.push_back(std::move(lItem));
    }
}

/// All rows of a small table.
template <class Item, class Read>
std::vector<Item> readAll(ZTCStoreReader& arReader, const std::string& acrSql, const Read& acrRead) {
    return storeCall(arReader.getPath(), [&] {
        std::vector<Item> lItems;
        SQLite::Statement lRow(arReader.getDatabase(), acrSql);
        while (lRow.executeStep()) {
            lItems.push_back(acrRead(lRow));
        }
        return lItems;
    });
}
