// Something that is counted, and told in the journal when there is one, ten, a hundred and so on.
#pragma once

#include <cstdint>

#include "Journal.h"

/// One thread.
class ZTCFcSum {
  public:
    void count(std::uint64_t aBy) { mCount += aBy; }
    void set(std::uint64_t aCount) { mCount = aCount; }
    std::uint64_t get() const { return mCount; }
    /// aIsLast: whatever it is by now, unless there is none.
    void tell(const ZTCFcJournal& acrJournal, const char* apWhat, bool aIsLast) {
        if (aIsLast ? mCount != 0 : mCount >= mNext) {
            acrJournal.note("%llu %s", static_cast<unsigned long long>(mCount), apWhat);
        }
        while (mNext <= mCount) {
            mNext *= 10;
        }
    }

  private:
    std::uint64_t mCount = 0;
    std::uint64_t mNext = 1;  // the count that is told next
};
