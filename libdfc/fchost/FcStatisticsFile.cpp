#include "FcStatisticsFile.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <utility>
#include <vector>

#include "Lock.h"
#include "Rights.h"
#include "ScopeWire.h"

namespace {

constexpr std::size_t sHeaderSize = ZTSStatisticsBlock::HeaderSize;
constexpr mode_t sMode = 0640;
constexpr int sTurn = 1000;  // milliseconds from writing to writing, and that an end waits for the last one

bool sHappensWithin(int aEvent, int aMilliseconds) {
    pollfd lPoll{aEvent, POLLIN, 0};
    int lReady = 0;
    do {
        lReady = poll(&lPoll, 1, aMilliseconds);
    } while (lReady < 0 && errno == EINTR);
    return lReady > 0;
}

class File {
  public:
    explicit File(int aFile = -1) : mFile(aFile) {}
    ~File() { isOpen() ? close(mFile) : 0; }
    File(const File&) = delete;
    File& operator=(File&& arOther) noexcept {
        std::swap(mFile, arOther.mFile);
        return *this;
    }
    bool isOpen() const { return mFile >= 0; }
    int get() const { return mFile; }

  private:
    int mFile;
};

}  // namespace

/// Outlives its owner when its thread is held up.
struct ZTCFcStatisticsFile::Work : std::enable_shared_from_this<Work> {
    Work(const std::string& acrDirectory, const std::string& acrLog)
        : mPath(acrDirectory + ZTWireLibraryStatistics), mNewPath(mPath + ".new"), mJournal(acrLog) {
        struct statfs lSystem {};
        if (acrDirectory.empty()) {
            errno = ENOENT;
            fail("no directory is set");
        } else if (statfs(acrDirectory.c_str(), &lSystem) != 0) {
            fail(acrDirectory.c_str());
        } else if (lSystem.f_type != TMPFS_MAGIC) {
            mIsOnDisk = true;
        } else if (make() && !allocate(MAP_SHARED | MAP_POPULATE)) {
            failAndDiscard("mmap");
        }
        if (mpBlock == nullptr && !allocate(MAP_PRIVATE | MAP_ANONYMOUS)) {
            throw std::bad_alloc();
        }
    }
    ~Work() { munmap(mpBlock, Size); }

    static ZTSStatisticsRow* rowsOf(ZTSStatisticsBlock* apBlock) {
        return reinterpret_cast<ZTSStatisticsRow*>(reinterpret_cast<unsigned char*>(apBlock) + sHeaderSize);
    }

    bool allocate(int aFlags) {
        void* const lpMapped = mmap(nullptr, Size, PROT_READ | PROT_WRITE, aFlags, mFile.get(), 0);
        mpBlock = lpMapped != MAP_FAILED ? static_cast<ZTSStatisticsBlock*>(lpMapped) : nullptr;
        return mpBlock != nullptr;
    }

    // Tells of the first failure alone: a disk may be full for long.
    bool fail(const char* apWhat) {
        const char* const lpWhy = strerror(errno);
        if (!std::exchange(mHasFailed, true)) {
            mJournal.note("the statistics are in no file (%s: %s)", apWhat, lpWhy);
        }
        return false;
    }
    bool failAndDiscard(const char* apWhat) {
        fail(apWhat);
        unlink(mNewPath.c_str());
        mFile = File();
        return false;
    }

    // Made by another name, and put into its place when it is whole: nothing that stands there is written.
    // With its room, or a store into it could find the system full.
    bool make() {
        unlink(mNewPath.c_str());  // a process that was killed has left it
        mFile = File(
            open(mNewPath.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY, sMode));
        if (!mFile.isOpen()) {
            return fail(mNewPath.c_str());
        }
        errno = posix_fallocate(mFile.get(), 0, Size);
        return (errno == 0 && fchmod(mFile.get(), sMode) == 0) || failAndDiscard(mNewPath.c_str());
    }

    // What stands there is replaced if it is a file of ours, as a killed process leaves it, and else left
    // alone.
    bool put() {
        struct stat lThere {};
        const bool lIsForeign =
            lstat(mPath.c_str(), &lThere) == 0 && (!S_ISREG(lThere.st_mode) || lThere.st_uid != geteuid());
        errno = EEXIST;
        return (!lIsForeign && rename(mNewPath.c_str(), mPath.c_str()) == 0) || failAndDiscard(mPath.c_str());
    }

    bool startThread() {
        const auto* const lpHeader = reinterpret_cast<const unsigned char*>(mpBlock);
        mCopy.assign(lpHeader, lpHeader + sHeaderSize);
        mCopy.resize(Size);
        if (!mEnd.isOpen() || !mHasEnded.isOpen()) {
            return fail("eventfd");
        }
        auto lpShare = std::make_unique<std::shared_ptr<Work>>(shared_from_this());
        pthread_attr_t lAttributes;
        sigset_t lAll;
        sigfillset(&lAll);  // they are the agent's
        pthread_attr_init(&lAttributes);
        pthread_attr_setdetachstate(&lAttributes, PTHREAD_CREATE_DETACHED);
        pthread_attr_setsigmask_np(&lAttributes, &lAll);
        pthread_t lThread{};
        errno = pthread_create(&lThread, &lAttributes, threadMain, lpShare.get());
        pthread_attr_destroy(&lAttributes);
        mHasThread = errno == 0;
        return mHasThread ? lpShare.release() != nullptr : fail("pthread_create");
    }

    static void* threadMain(void* apShare) {
        giveUpFcRights();  // the directory and the file are those of its user
        const std::unique_ptr<std::shared_ptr<Work>> lpShare(static_cast<std::shared_ptr<Work>*>(apShare));
        Work& lrWork = **lpShare;
        do {
            lrWork.write();
        } while (!sHappensWithin(lrWork.mEnd.get(), sTurn));
        lrWork.write();
        lrWork.remove();
        eventfd_write(lrWork.mHasEnded.get(), 1);
        return nullptr;
    }

    // What fails is tried again in a second.
    void write() {
        mIsWritten = !take() && mIsWritten;
        const bool lIsNew = !mFile.isOpen();
        if (mIsWritten || (lIsNew && !make())) {
            return;
        }
        // The rows first: one who reads believes the count.
        mIsWritten =
            isWritten(sHeaderSize, mRowCount * sizeof(ZTSStatisticsRow)) && isWritten(0, sHeaderSize);
        if (lIsNew) {
            mIsWritten = mIsWritten ? put() : failAndDiscard(mNewPath.c_str());
        }
    }

    // Whether something has changed since the last time.
    bool take() {
        const std::uint32_t lCount = std::atomic_ref(mpBlock->mRowCount).load(std::memory_order_acquire);
        bool lHasChanged = std::exchange(mRowCount, lCount) != lCount;
        memcpy(&mCopy[offsetof(ZTSStatisticsBlock, mRowCount)], &lCount, sizeof lCount);
        for (std::uint32_t lRow = 0; lRow < lCount; ++lRow) {
            const ZTSStatisticsRow& lrRow = rowsOf(mpBlock)[lRow];
            unsigned char* const lpTo = &mCopy[sHeaderSize + lRow * sizeof lrRow];
            const std::uint64_t lValue = lrRow.mValue.load(std::memory_order_relaxed);
            memcpy(lpTo, lrRow.mName, sizeof lrRow.mName);
            lHasChanged = memcmp(lpTo + sizeof lrRow.mName, &lValue, sizeof lValue) != 0 || lHasChanged;
            memcpy(lpTo + sizeof lrRow.mName, &lValue, sizeof lValue);
        }
        return lHasChanged;
    }

    bool isWritten(std::size_t aAt, std::size_t aSize) {
        errno = ENOSPC;  // when it writes less
        return pwrite(mFile.get(), &mCopy[aAt], aSize, static_cast<off_t>(aAt)) ==
               static_cast<ssize_t>(aSize);
    }

    void remove() const {
        struct stat lOurs {};
        struct stat lThere {};
        if (fstat(mFile.get(), &lOurs) == 0 && lstat(mPath.c_str(), &lThere) == 0 &&
            lOurs.st_dev == lThere.st_dev && lOurs.st_ino == lThere.st_ino) {
            unlink(mPath.c_str());
        }
    }

    // A child that has not become another program shares the list, not what is in it.
    void withdraw() const {
        if (mpBlock->mProcess != static_cast<std::uint64_t>(getpid())) {
            return;
        }
        if (!mIsOnDisk) {
            remove();
        } else if (mHasThread && eventfd_write(mEnd.get(), 1) == 0) {
            sHappensWithin(mHasEnded.get(), sTurn);
        }
    }

    void enlist() {
        static const int sAtExit = at_quick_exit([] {
            const ZTCFcGuard lGuard(sLock);
            for (const Work* lpWork = spFirst; lpWork != nullptr; lpWork = lpWork->mpNext) {
                lpWork->withdraw();
            }
        });
        const ZTCFcGuard lGuard(sLock);
        mpNext = std::exchange(spFirst, sAtExit == 0 ? this : spFirst);
    }
    void delist() {
        const ZTCFcGuard lGuard(sLock);
        Work** lpAt = &spFirst;
        while (*lpAt != nullptr && *lpAt != this) {
            lpAt = &(*lpAt)->mpNext;
        }
        *lpAt = *lpAt != nullptr ? mpNext : nullptr;
    }

    const std::string mPath;
    const std::string mNewPath;
    const ZTCFcJournal mJournal;
    ZTSStatisticsBlock* mpBlock = nullptr;
    bool mIsOnDisk = false;
    bool mHasThread = false;
    bool mHasFailed = false;
    File mFile;
    const File mEnd{eventfd(0, EFD_CLOEXEC)};
    const File mHasEnded{eventfd(0, EFD_CLOEXEC)};

    // Of the thread: what it writes.
    std::vector<unsigned char> mCopy;
    std::uint32_t mRowCount = 0;
    bool mIsWritten = false;

    static inline ZTCFcLock sLock;
    static inline Work* spFirst ZT_FC_GUARDED_BY(sLock) = nullptr;  // of those that are shown
    Work* mpNext ZT_FC_GUARDED_BY(sLock) = nullptr;
};

ZTCFcStatisticsFile::ZTCFcStatisticsFile(const std::string& acrDirectory, const std::string& acrLog)
    : mpWork(std::make_shared<Work>(acrDirectory, acrLog)), mpRows(Work::rowsOf(mpWork->mpBlock)) {
    const auto lNow = std::chrono::system_clock::now().time_since_epoch();
    ZTSStatisticsBlock& lrBlock = *mpWork->mpBlock;
    memcpy(lrBlock.mMagic, ZTStatisticsMagic, sizeof lrBlock.mMagic);
    lrBlock.mRowSize = sizeof(ZTSStatisticsRow);
    lrBlock.mStart = static_cast<std::uint64_t>(std::chrono::nanoseconds(lNow).count());
    lrBlock.mProcess = static_cast<std::uint64_t>(getpid());
}

ZTCFcStatisticsFile::~ZTCFcStatisticsFile() {
    mpWork->delist();
    mpWork->withdraw();
}

void ZTCFcStatisticsFile::show() {
    if (mpWork->mIsOnDisk ? mpWork->startThread() : mpWork->mFile.isOpen() && mpWork->put()) {
        mpWork->enlist();
    }
}

void ZTCFcStatisticsFile::setRowCount(std::uint32_t aCount) {
    std::atomic_ref(mpWork->mpBlock->mRowCount).store(aCount, std::memory_order_release);
}
