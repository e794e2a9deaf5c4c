// Makes rows of what the agent hands over: what says the same within a time is one row.
#pragma once

#include <chrono>
#include <deque>
#include <functional>
#include <limits>
#include <span>
#include <vector>

#include "EventBlock.h"
#include "Record.h"

/// A record as the agent handed it over. It refers to where it was read from.
struct ZTSCollected {
    const ZTSPortNames& mrInitiator;
    std::uint8_t mCategory;
    std::uint8_t mSubcategory;
    const std::optional<ZTSPortNames>& mrTarget;
    ZTNanoseconds mFirst;
    ZTNanoseconds mLast;
    std::uint64_t mOccurrences;
    std::span<const std::uint8_t> mData;
};

struct ZTSFoldedRow {
    ZTSRecord mRecord;
    ZTSEventLayout mLayout;  ///< how its data folds
    std::chrono::steady_clock::time_point mOpened;
    std::uint64_t mId = 0;        ///< the store's; 0: it has none yet
    std::uint64_t mDetached = 0;  ///< how many of its occurrences the store has, or is about to get
    bool mIsOpen = true;          ///< it takes more

    /// It never changes again, and nothing of it waits to be detached.
    bool isFinal() const { return !mIsOpen && mId != 0 && mDetached == mRecord.mOccurrences; }
    bool hasNews() const { return mId == 0 || mDetached != mRecord.mOccurrences; }
};

/// What a record has on the heap, about.
std::size_t ZTBytesBeside(const ZTSRecord& acrRecord);

struct ZTSFoldOptions {
    std::chrono::nanoseconds mWindow{std::chrono::seconds(10)};
    std::size_t mCeiling = 4096;  ///< joined lists grow as long as a row's data stays shorter than that
};

/// The rows, in the order in which they were opened; those with ids come first. One thread at a time.
class ZTCFolding {
  public:
    using Clock = std::chrono::steady_clock;
    /// Completes the record of a new row: the fabric and the remote port of its series.
    using Namer = std::function<void(ZTSRecord&)>;

    explicit ZTCFolding(ZTSFoldOptions aOptions) : mOptions(aOptions) {}

    /// From now on, for rows that are open already, too.
    void setOptions(ZTSFoldOptions aOptions) { mOptions = aOptions; }
    /// So much getBytes() may be, about.
    void setLimit(std::size_t aBytes) { mLimit = aBytes; }

    /// Into the open row that says the same and was opened last, if its first event is less than the window
    /// before this one's. One that begins before it, because the clock was set back, and one that makes a
    /// list too long open a new row. False: that takes more than the limit, and nothing of it was taken.
    /// Throws std::bad_alloc, and what the namer throws: the same.
    bool take(const ZTSCollected& acrCollected, Clock::time_point aNow, const Namer& acrName);
    /// Closes the rows that are open for the window. Whether there were any.
    bool close(Clock::time_point aNow);
    void closeAll() { close(Clock::time_point::max()); }

    std::deque<ZTSFoldedRow>& getRows() { return mRows; }
    /// Takes the first ones out, which are closed.
    void dropFirst(std::size_t aCount);
    /// Makes one row of those that have no id yet, the same series, and a first event in the same span of
    /// time, whatever else they say: the row says what they have in common. Throws std::bad_alloc: all is as
    /// it was.
    void foldCoarsely(ZTNanoseconds aSpan);
    /// How many rows were opened since rows were folded coarsely.
    std::size_t getOpenedSince() const { return mOpenedSince; }
    /// What the rows take, about.
    std::size_t getBytes() const { return mBytes + mSlots.capacity() * sizeof(Slot); }

  private:
    // Where a row is found by the hash of what it compares. Rows are numbered from 1 on, as they come; a
    // number below mFirstNumber is that of a row that is gone.
    struct Slot {
        std::uint64_t mHash = 0;
        std::uint64_t mNumber = 0;  // 0: the slot is free
    };

    ZTSFoldedRow* findOpen(const Slot& acrSlot);
    Slot* find(std::uint64_t aHash, const ZTSCollected& acrCollected, const ZTSEventLayout& acrLayout);
    void place(std::uint64_t aHash, std::uint64_t aNumber);
    void placeAll();
    bool isFull(std::size_t aMore) const { return getBytes() + aMore > mLimit; }
    bool fits(const ZTSFoldedRow& acrRow, const ZTSCollected& acrCollected, ZTNanoseconds aFirst) const;
    bool fold(ZTSFoldedRow& arRow, const ZTSCollected& acrCollected);
    bool open(std::uint64_t aHash, const ZTSCollected& acrCollected, const ZTSEventLayout& acrLayout,
              Clock::time_point aNow, const Namer& acrName);
    void dropEmpty();

    ZTSFoldOptions mOptions;
    std::size_t mLimit = std::numeric_limits<std::size_t>::max();
    std::deque<ZTSFoldedRow> mRows;
    std::uint64_t mFirstNumber = 1;  // of the first row
    std::size_t mFirstOpen = 0;      // all rows before it are closed
    std::size_t mOpenedSince = 0;
    std::size_t mBytes = 0;
    std::vector<Slot> mSlots;  // as many as a power of two; a quarter of them are free
    std::size_t mUsed = 0;
};
