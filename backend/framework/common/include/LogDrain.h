// Takes the records out of the rings, in order of time, and puts their lines into the file. See Log.h.
#pragma once

#include <atomic>
#include <climits>

#include "LogFile.h"
#include "LogLine.h"
#include "LogRings.h"
#include "Statistics.h"

/// Used by one thread at a time: the log's writer, or, where there is none, the one that ends the process.
/// What may be called from elsewhere says so.
class ZTCLogDrain {
  public:
    explicit constexpr ZTCLogDrain(ZTCLogRings& arRings) : mrRings(arRings) {}

    /// Opens the file at the path, or opens it anew. At the first time what has been logged so far comes
    /// first in it. Returns 0, or the errno: then the file before, if there was one, stays in use, and gets a
    /// line that says so.
    int open(const char* apPath);
    bool isOpen() const { return mFile.isOpen(); }

    /// One look at every ring, while a file is open. Returns the bytes taken from them; of records that came
    /// during the look some stay for the next one.
    std::uint64_t drainOnce();

    /// Everything that was put before the call. Where no file was ever opened it goes to standard error.
    void drainAll();

    /// Whether records were lost and this could not be told yet, or a line went out in part.
    bool hasUntold() const {
        return mUnwritten != 0 || mFile.isTorn() || ZTGetStatistic(ZTS_LogLostFull) > mToldDropped;
    }

    /// The file's greatest size in MiB, 0: none. Before the file is opened.
    void setLimit(unsigned int aMebibytes) { mLimit = aMebibytes; }

    /// Any thread. See setLogEcho.
    void setEcho(bool aOn) { mEcho.store(aOn, std::memory_order_relaxed); }

    /// After a fork, in the child: the file is the parent's.
    void forget();

  private:
    // A ring with something to take.
    struct Source {
        ZTCLogRing* mpRing;
        std::uint64_t mAt;           // the next record
        std::uint64_t mEnd;          // behind the last one of this look
        std::uint64_t mSeen;         // behind the last one that the look before saw
        const ZTCLogRecord* mpNext;  // what stands at mAt; null: nothing more in this look
    };

    void findSources(std::uint64_t aStart);
    static void advance(Source& arSource, std::uint64_t aStart);
    Source* earliest(std::uint64_t& arOthers);
    std::uint64_t look();
    void addLine(const ZTCLogRecord& acrRecord);
    void put();
    void putToFile(const char* apLines, std::size_t aSize);
    template <class... Arguments>
    bool putOwn(const ztlog::Site& acrSite, const Arguments&... acrArguments);
    bool putLost(std::uint64_t aCount, const char* apReason);
    void rotate();
    void tellUnwritten();
    void tellDropped();

    ZTCLogRings& mrRings;
    ZTCLogFile mFile;
    ZTCLogLine mLine;
    char mPath[PATH_MAX] = "";
    unsigned int mLimit = 0;
    std::uint64_t mRotateAt = 0;     ///< the size to try it at, once it has failed
    bool mIsMaskKnown = false;       ///< what comes has been put behind the mask
    std::uint64_t mUnwritten = 0;    ///< lines that could not be written and have not been told yet
    std::uint64_t mToldDropped = 0;  ///< of the statistics' log_lost_total{reason="full"}
    std::uint64_t mToldAt = 0;       ///< when, in nanoseconds since 1970
    std::atomic<bool> mEcho{false};
    std::size_t mSourceCount = 0;
    Source mSources[ZTCLogRings::Count]{};
    std::size_t mUsed = 0;
    char mLines[128 * 1024]{};  ///< formatted, on their way to the file
};
