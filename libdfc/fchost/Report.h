// What the library says of itself in its journal: what it cannot hand on as an event, summed up, and what
// keeps it from hearing or seeing.
#pragma once

#include <map>
#include <string>

#include "FcSettings.h"
#include "Journal.h"
#include "Sum.h"
#include "Watcher.h"

/// One thread.
class ZTCFcReport {
  public:
    explicit ZTCFcReport(const ZTSFcSettings& acrSettings);

    void tellThatNothingIsHeard(int aErrno) const;
    void tellThatRightsStay(int aErrno) const;
    /// Told when it changes.
    void setHostsReadable(bool aIsReadable);
    /// Told once, until setMemoryThere.
    void setMemoryGone();
    void setMemoryThere() { mIsMemoryGone = false; }
    /// Told at the next add, once.
    void setOverrun() { mHasOverrun = true; }

    // Sums. The journal has one when it reaches one, ten, a hundred and so on, and at the end.

    void countMalformed(unsigned int aCount) { mMalformed.count(aCount); }
    void countForeign() { mForeign.count(1); }
    /// Tells what has been lost anew. Throws std::bad_alloc: some of the counts are left out.
    void add(const ZTCFcWatcher::Counts& acrCounts);
    void tell();
    /// acrLast: what has come since the last add.
    void tellAtEnd(const ZTCFcWatcher::Counts& acrLast);
    /// Events of the kernel that have been lost.
    std::uint64_t getLost() const { return mLost.get(); }

  private:
    void tellSums(bool aIsLast);

    const ZTSFcSettings mSettings;
    const ZTCFcJournal mJournal;
    bool mIsReadable = true;
    bool mIsMemoryGone = false;
    bool mHasOverrun = false;
    ZTCFcSum mLost;
    ZTCFcSum mForeign;
    ZTCFcSum mMalformed;
    ZTCFcSum mOfUnknownHosts;
    std::map<std::uint32_t, ZTCFcSum> mWithoutKind;  // by code
    ZTCFcSum mOfOtherCodes;
};
