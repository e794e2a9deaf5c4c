// What the host has told and is not on its way into the store yet.
#pragma once

#include <cstdint>
#include <vector>

#include "HostNews.h"
#include "Record.h"

/// Joined with what waits, within a limit: where it is reached sums become coarser and FPINs that say the
/// same one, and what finds no room then is counted: what came last, but the ends of stalls behind all else.
/// One thread at a time.
class ZTCHostBacklog {
  public:
    /// aLimit: in bytes, of FPINs, stalls and sums. What is there whole (storage, blind spots, windows) has
    /// its own limits, and replaces what was there.
    explicit ZTCHostBacklog(std::size_t aLimit) : mLimit(aLimit) {}

    /// What there is no memory for is counted as lost too.
    void take(ZTSHostNews aNews) noexcept;
    bool isEmpty() const { return mNews.isEmpty(); }
    std::size_t getBytes() const { return mBytes; }

    /// A row for each kind of which something was lost since detach(). Throws std::bad_alloc.
    std::vector<ZTSChange> listLost(ZTNanoseconds aTime) const;
    /// All of it.
    ZTSHostNews detach() noexcept;

  private:
    struct Lost {
        std::uint64_t mFpins = 0, mStalls = 0, mSums = 0;
    };
    void takeFpins(std::vector<ZTSFpin>&& arFpins) noexcept;
    void takeStalls(std::vector<ZTSStall>&& arStalls) noexcept;
    void takeMeasures(ZTCMeasures&& arMeasures) noexcept;
    void dropFpins() noexcept;
    template <class Thing>
    void dropWhatIsTooMuch(std::vector<Thing>& arThings, std::size_t aLeast = 0) noexcept;
    void makeCoarser() noexcept;
    void countBytes() noexcept;
    std::size_t countEventBytes() const;

    const std::size_t mLimit;
    ZTSHostNews mNews;
    std::uint64_t mFpins = 0;  // that wait, with how often each came
    std::size_t mBytes = 0;    // at least what there is: what became one may count for two
    std::size_t mMeasureBytes = 0;
    std::size_t mCoarseBytes = 0;  // what was left when it was made coarser last
    Lost mLost;
};
