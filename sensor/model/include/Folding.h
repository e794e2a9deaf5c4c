// Makes rows of what the agent hands over: what says the same within a time is one row.
#pragma once

#include <chrono>
#include <deque>
#include <memory>
#include <span>

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
    std::chrono::steady_clock::time_point mOpened;
    std::uint64_t mId = 0;      ///< the store's; 0: it has none yet
    std::uint64_t mStored = 0;  ///< how many of its occurrences the store has, or is about to get
    bool mIsOpen = true;        ///< it takes more
};

struct ZTSFoldOptions {
    std::chrono::nanoseconds mWindow{std::chrono::seconds(10)};
    std::size_t mCeiling = 4096;  ///< up to so many bytes a row's data grows by joined lists
};

/// The rows, the oldest first. One thread at a time.
class ZTCFolding {
  public:
    using Clock = std::chrono::steady_clock;

    explicit ZTCFolding(ZTSFoldOptions aOptions);
    ~ZTCFolding();
    ZTCFolding(const ZTCFolding&) = delete;
    ZTCFolding& operator=(const ZTCFolding&) = delete;

    /// For rows that are opened from now on.
    void setOptions(ZTSFoldOptions aOptions);
    /// Into the open row that says the same and whose first event is less than the window before this one's;
    /// one that begins before that, because the clock was set back, opens a new row. Returns the row that was
    /// opened, whose mFabric and mRemote are the caller's to set, or null. Throws std::bad_alloc: nothing of
    /// it was taken.
    ZTSFoldedRow* take(const ZTSCollected& acrCollected, Clock::time_point aNow);
    /// Closes the rows that are open for the window.
    void close(Clock::time_point aNow);
    /// Closes all.
    void closeAll();

    std::deque<ZTSFoldedRow>& getRows();
    /// Takes the first ones out, which are closed.
    void dropFirst(std::size_t aCount);
    /// Makes one row of all that have no id yet and the same series, whatever else they say and whenever they
    /// were. Returns how many bytes that has freed.
    std::size_t foldCoarsely();
    /// What the rows take, about.
    std::size_t getBytes() const;

  private:
    class Impl;
    std::unique_ptr<Impl> mpImpl;
};
