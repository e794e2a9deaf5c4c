#include "StatisticsFile.h"

#include <fcntl.h>
#include <libgen.h>
#include <linux/futex.h>
#include <linux/magic.h>
#include <poll.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <new>

#include "ClibMemory.h"
#include "Event.h"
#include "Exception.h"
#include "Log.h"
#include "Periods.h"
#include "Statistics.h"

namespace {

constexpr char sFile[] = "StatisticsFile";
constexpr mode_t sMode = 0640;

bool sHappensWithin(const ZTCEvent& acrEvent, ZTEPeriod aPeriod) {
    pollfd lPoll{acrEvent.getDescriptor(), POLLIN, 0};
    int lReady = 0;
    do {
        lReady = poll(&lPoll, 1, static_cast<int>(ZTPeriod(aPeriod).count()));
    } while (lReady < 0 && errno == EINTR);
    return lReady > 0;
}

// Whether files here are nothing but memory. The block is as long as a page nearly everywhere.
bool sMayBeMapped(const char* apPath) {
    char lPath[PATH_MAX];
    ClibStrcpy(lPath, apPath);
    struct statfs lSystem {};
    return statfs(dirname(lPath), &lSystem) == 0 && lSystem.f_type == TMPFS_MAGIC &&
           sysconf(_SC_PAGESIZE) == ZTSStatisticsBlock::Size;
}

void sTell(const ZTCException& acrException) {
    Log(ZTLL_Warning, sFile, "The statistics are in no file: %s", acrException.what());
}

}  // namespace

/// Outlives its owner when its thread is held up.
struct ZTCStatisticsFile::Work {
    using Fill = void (Work::*)(int);

    static void* threadMain(void* apWork) {
        static_cast<Work*>(apWork)->run();
        return nullptr;
    }

    void begin() {
        if (sMayBeMapped(mPath)) {
            tryToMake(&Work::map);
        }
        const int lErrno = pthread_create(&mThread, nullptr, threadMain, this);
        if (lErrno != 0) {
            throwErrno<ZTCOsException>("pthread_create", "statistics", lErrno);
        }
        mHasThread = true;
        pthread_setname_np(mThread, "statistics");
    }

    void run() {
        do {
            mpRefresh(mpContext);
            write();
        } while (!sHappensWithin(mEnd, ZTP_StatisticsTurn));
        if (!mIsMapped) {
            write();
            remove();
        }
        mHasEnded.set();
    }

    void write() {
        if (mIsMapped) {
            return;
        }
        if (mFile.isOpen()) {
            writeOut(mFile.get());  // what fails is tried again in a second
        } else {
            tryToMake(&Work::fill);
        }
    }

    // Tells of the first failure alone: the disk may be full for long.
    void tryToMake(Fill aFill) {
        try {
            make(aFill);
        } catch (const ZTCException& lrException) {
            mHasFailed ? void() : sTell(lrException);
            mHasFailed = true;
        }
    }

    // Made by another name and then put into its place: what stands there is not written, and nobody finds it
    // half made.
    void make(Fill aFill) {
        unlink(mNewPath);  // an agent that was killed has left it
        ZTCDescriptor lFile(open(
            mNewPath, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, sMode));
        if (!lFile.isOpen()) {
            throwErrno<ZTCOsException>("open", mNewPath, errno);
        }
        const off_t lSize = ZTSizeOfStatistics();
        try {
            // With its room: no store into it later finds the disk full. What umask took of the mode is put
            // back.
            int lErrno = posix_fallocate(lFile.get(), 0, lSize);
            lErrno = lErrno == 0 && fchmod(lFile.get(), sMode) != 0 ? errno : lErrno;
            if (lErrno != 0) {
                throwErrno<ZTCOsException>("fallocate", mNewPath, lErrno);
            }
            (this->*aFill)(lFile.get());
            if (rename(mNewPath, mPath) != 0) {
                throwErrno<ZTCOsException>("rename", mPath, errno);
            }
        } catch (const ZTCException&) {
            mIsMapped = false;  // to be tried again
            unlink(mNewPath);
            throw;
        }
        mFile = std::move(lFile);
    }

    // A copy of the block takes the block's place.
    void map(int aFile) {
        void* const lpMapped = mmap(nullptr, ZTSStatisticsBlock::Size, PROT_READ | PROT_WRITE,
                                    MAP_SHARED | MAP_POPULATE, aFile, 0);
        if (lpMapped == MAP_FAILED) {
            throwErrno<ZTCOsException>("mmap", mNewPath, errno);
        }
        ZTCopyStatistics(*static_cast<ZTSStatisticsBlock*>(lpMapped));
        if (mremap(lpMapped, ZTSStatisticsBlock::Size, ZTSStatisticsBlock::Size,
                   MREMAP_MAYMOVE | MREMAP_FIXED, &ztstatistics::gBlock) == MAP_FAILED) {
            const int lErrno = errno;
            munmap(lpMapped, ZTSStatisticsBlock::Size);
            throwErrno<ZTCOsException>("mremap", mNewPath, lErrno);
        }
        mIsMapped = true;
    }

    ssize_t writeOut(int aFile) {
        ZTCopyStatistics(mCopy);
        return pwrite(aFile, &mCopy, ZTSizeOfStatistics(), 0);
    }

    void fill(int aFile) {
        const ssize_t lWritten = writeOut(aFile);
        if (lWritten != static_cast<ssize_t>(ZTSizeOfStatistics())) {
            throwErrno<ZTCOsException>("write", mNewPath, lWritten < 0 ? errno : ENOSPC);
        }
    }

    void remove() const {
        if (ZTIsStillAt(mFile.get(), mPath)) {
            unlink(mPath);
        }
    }

    Refresh mpRefresh = nullptr;
    void* mpContext = nullptr;
    char mPath[PATH_MAX]{};
    char mNewPath[PATH_MAX]{};
    ZTCEvent mEnd;
    ZTCEvent mHasEnded;
    ZTCDescriptor mFile;
    bool mIsMapped = false;
    pthread_t mThread{};
    bool mHasThread = false;
    bool mHasFailed = false;
    ZTSStatisticsBlock mCopy{};
};

void ZTCStatisticsFile::show(const char* apPath, Refresh apRefresh, void* apContext) {
    try {
        mpWork = new (std::nothrow) Work;
        if (mpWork == nullptr) {
            throwNoMemory();
        }
        mpWork->mpRefresh = apRefresh;
        mpWork->mpContext = apContext;
        const int lLength = snprintf(mpWork->mPath, PATH_MAX, "%s", apPath);
        if (lLength >= PATH_MAX || snprintf(mpWork->mNewPath, PATH_MAX, "%s.new", apPath) >= PATH_MAX) {
            delete std::exchange(mpWork, nullptr);
            throwErrno<ZTCOsException>("open", apPath, ENAMETOOLONG);
        }
        mpWork->begin();
    } catch (const ZTCException& lrException) {
        if (mpWork != nullptr && mpWork->mIsMapped && mpWork->mFile.isOpen()) {
            Log(ZTLL_Warning, sFile, "Nobody looks after callbacks_inside in the statistics: %s",
                lrException.what());
        } else {
            sTell(lrException);
        }
    }
}

void ZTCStatisticsFile::withdraw() {
    if (mpWork == nullptr) {
        return;
    }
    Work* const lpWork = std::exchange(mpWork, nullptr);
    if (lpWork->mIsMapped) {
        lpWork->remove();
    }
    lpWork->mEnd.set();
    if (lpWork->mHasThread && !sHappensWithin(lpWork->mHasEnded, ZTP_StatisticsEnd)) {
        pthread_detach(lpWork->mThread);  // held up by a disk: it keeps what it works with
        return;
    }
    if (lpWork->mHasThread) {
        pthread_join(lpWork->mThread, nullptr);
    }
    delete lpWork;
}

void ZTCStatisticsFile::wake() {
    std::atomic<std::uint32_t>& lrWake = ztstatistics::gBlock.mWake;
    lrWake.fetch_add(1, std::memory_order_relaxed);
    syscall(SYS_futex, &lrWake, FUTEX_WAKE, INT_MAX, nullptr, nullptr, 0);
}
