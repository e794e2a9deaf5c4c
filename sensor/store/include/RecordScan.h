// Walks through the records of the history, a slice at a time.
#pragma once

#include <optional>

#include "StoreReader.h"

/// Where a walk stands: behind what has this time and this id.
struct ZTSStorePosition {
    ZTNanoseconds mTime = std::numeric_limits<ZTNanoseconds>::min();
    std::uint64_t mId = 0;

    auto operator<=>(const ZTSStorePosition&) const = default;
};

/// The records that a filter takes, in the order of their first events; those that came behind a place are
/// left out. By the index of times or, where few records can be meant, by the series that can.
class ZTCRecordScan {
  public:
    enum class Order : unsigned char { OldestFirst, NewestFirst };

    ZTCRecordScan(ZTCStoreReader& arReader, ZTSHistoryFilter aFilter, ZTSStorePlace aPlace,
                  Order aOrder = Order::OldestFirst, bool aWithData = true);

    /// Only what stands at a position or behind it.
    void beginAt(const ZTSStorePosition& acrPosition);
    /// Adds the next ones, aMost at most. False: there is nothing more. It may add none and be true.
    bool read(std::vector<ZTSStoredRecord>& arRecords,
              std::size_t aMost = std::numeric_limits<std::size_t>::max());
    /// What it has looked at last, whether or not that was meant.
    const ZTSStorePosition& getPosition() const { return mAt; }

  private:
    // Records of one series, or of all.
    struct Lane {
        SQLite::Statement mStatement;
        ZTSStorePosition mAt;
    };

    void addLane(std::optional<std::int64_t> aSeries);
    bool step(Lane& arLane) const;
    void bind(Lane& arLane) const;
    bool isMeant(std::int64_t aSeries);
    bool isBehind(const Lane* apLeft, const Lane* apRight) const;
    std::size_t takeFrom(Lane& arLane, std::vector<ZTSStoredRecord>& arRecords);

    ZTCStoreReader& mrReader;
    const ZTSHistoryFilter mFilter;
    const ZTSStorePlace mPlace;
    const bool mIsForward;
    const bool mWithData;
    ZTNanoseconds mEnd;
    ZTSStorePosition mAt;
    std::vector<Lane> mLanes;
    std::unordered_map<std::int64_t, bool> mMeant;
};

/// Where so many of the newest ones begin; nothing: there are not more than those.
std::optional<ZTSStorePosition> findNewest(ZTCStoreReader& arReader, const ZTSHistoryFilter& acrFilter,
                                           const ZTSStorePlace& acrPlace, std::uint64_t aCount);
