// What the library says of itself in its journal: what it cannot hand on as an event, summed up, and what
// keeps it from hearing or seeing.
#pragma once

#include <map>
#include <string>

#include "FcSettings.h"
#include "Journal.h"
#include "Watcher.h"

/// One thread.
class ZTCFcReport {
  public:
    explicit ZTCFcReport(const ZTSFcSettings& acrSettings);

    void tellThatNothingIsHeard(int aErrno) const;
    /// Told when it changes.
    void setHostsReadable(bool aIsReadable);
    /// Told once, until setMemoryThere.
    void setMemoryGone();
    void setMemoryThere() { mIsMemoryGone = false; }
    /// Told at the next add, once.
    void setOverrun() { mHasOverrun = true; }

    // Sums. The journal has one when it reaches one, ten, a hundred and so on, and at the end.

    void countMalformed(unsigned int aCount) { mMalformed.mCount += aCount; }
    void countForeign() { ++mForeign.mCount; }
    /// Tells what has been lost anew. Throws std::bad_alloc: some of the counts are left out.
    void add(const ZTCFcWatcher::Counts& acrCounts);
    void tell();
    /// acrLast: what has come since the last add.
    void tellAtEnd(const ZTCFcWatcher::Counts& acrLast);

  private:
    struct Sum {
        std::uint64_t mCount = 0;
        std::uint64_t mNext = 1;  // the count that is told next
    };
    void tellSums(bool aIsLast);

    const ZTSFcSettings mSettings;
    const ZTCFcJournal mJournal;
    bool mIsReadable = true;
    bool mIsMemoryGone = false;
    bool mHasOverrun = false;
    Sum mLost;
    Sum mForeign;
    Sum mMalformed;
    Sum mOfUnknownHosts;
    std::map<std::uint32_t, Sum> mWithoutKind;  // by code
    Sum mOfOtherCodes;
};
