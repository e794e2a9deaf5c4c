#include "NamedPipe.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <iterator>

#include "Descriptor.h"
#include "Exception.h"
#include "Log.h"
#include "Os.h"
#include "Periods.h"
#include "Pointer.h"
#include "SafeFile.h"

namespace {

constexpr char sFile[] = "NamedPipe";

void closeOne(int& arDescriptor) {
    if (arDescriptor >= 0) {
        close(arDescriptor);
    }
    arDescriptor = -1;
}

// Polls until the deadline (null: without limit); 0 when it has passed.
int pollUntil(pollfd* apPolls, nfds_t aCount, const timespec* apDeadline) {
    for (;;) {
        timespec lLeft{};
        if (apDeadline != nullptr) {
            timespec lNow;
            clock_gettime(CLOCK_MONOTONIC, &lNow);
            const long long lNanoseconds =
                (apDeadline->tv_sec - lNow.tv_sec) * 1000000000LL + (apDeadline->tv_nsec - lNow.tv_nsec);
            lLeft.tv_sec = std::max(lNanoseconds, 0LL) / 1000000000;
            lLeft.tv_nsec = std::max(lNanoseconds, 0LL) % 1000000000;
        }
        const int lReady = ppoll(apPolls, aCount, apDeadline != nullptr ? &lLeft : nullptr, nullptr);
        if (lReady >= 0) {
            return lReady;
        }
        if (errno != EINTR) {
            throwErrno<ZTCOsException>("ppoll", nullptr, errno);
        }
    }
}

}  // namespace

ZTCNamedPipe::ZTCNamedPipe(const ZTCString& acrPath, unsigned char aDirection, unsigned char aMode,
                           unsigned char aServer)
    : mPath(acrPath), mMode(aMode), mDirection(aDirection), mServer(aServer) {
    const ZTCTraceScope lTrace(sFile);
    mCancel = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (mCancel < 0) {
        fail("eventfd", errno);
    }
}

ZTCNamedPipe::~ZTCNamedPipe() {
    try {
        ZTCNamedPipe::close(0);
        ZTCNamedPipe::destroy(0);
    } catch (const ZTCException& lrException) {
        Log(ZTLL_Warning, sFile, "%s", lrException.what());
    }
    closeOne(mIdentity);
    closeOne(mCancel);
}

// ---- Making and removing ----

void ZTCNamedPipe::create(unsigned int /*aFlags*/) {
    if (mkfifo(mPath.get(), S_IRUSR | S_IWUSR) != 0 && errno != EEXIST) {
        fail("mkfifo", errno);
    }
    closeOne(mIdentity);
    mIdentity = ::open(mPath.get(), O_PATH | O_NOFOLLOW | O_CLOEXEC);
    if (mIdentity < 0) {
        fail("open", errno);
    }
    try {
        OsCheckFile(mIdentity, mPath.get(), S_IFIFO);
    } catch (const ZTCException&) {
        closeOne(mIdentity);
        throw;
    }
    // Without opening an end: a sensor that waits for one must not find it only to lose it again.
    if (chmod(ZTSDescriptorPath(mIdentity).mText, S_IRUSR | S_IWUSR) != 0) {
        fail("chmod", errno);
    }
}

void ZTCNamedPipe::destroy(unsigned int /*aFlags*/) {
    struct stat lOurs {};
    struct stat lNamed {};
    if (mIdentity >= 0 && fstat(mIdentity, &lOurs) == 0 && lstat(mPath.get(), &lNamed) == 0 &&
        lOurs.st_dev == lNamed.st_dev && lOurs.st_ino == lNamed.st_ino && unlink(mPath.get()) != 0) {
        fail("unlink", errno);
    }
    closeOne(mIdentity);
}

// Opens an end of the pipe that create() made or took, wherever its path leads now.
int ZTCNamedPipe::openAnew(int aFlags) const {
    const int lEnd = ::open(ZTSDescriptorPath(mIdentity).mText, aFlags | O_NONBLOCK | O_CLOEXEC);
    if (lEnd < 0) {
        fail("open", errno);
    }
    return lEnd;
}

void ZTCNamedPipe::open(unsigned int /*aFlags*/) {
    if (mDirection == ZTNPD_Read) {
        mDescriptor = static_cast<unsigned int>(openAnew(O_RDONLY));
    } else {
        // A writing end can be opened only while there is a reading one.
        setKeeper(true);
        mDescriptor = static_cast<unsigned int>(openAnew(O_WRONLY));
        setKeeper(false);
        mChange = epoll_create1(EPOLL_CLOEXEC);
        epoll_event lChanges{};
        lChanges.events = EPOLLERR | EPOLLET;
        if (mChange < 0 || epoll_ctl(mChange, EPOLL_CTL_ADD, descriptor(), &lChanges) != 0) {
            fail("epoll", errno);
        }
    }
    // A smaller pipe only means more turns.
    static_cast<void>(fcntl(descriptor(), F_SETPIPE_SZ, Capacity));
    if (const unsigned int lUnread = unread(); mDirection == ZTNPD_Write && lUnread != 0) {
        // From an agent before this one: kept in the pipe by a sensor that still has it open.
        mWritten = lUnread;
        orNoMemory([this] { mEnds.push_back(mWritten); });
    }
}

void ZTCNamedPipe::close(unsigned int /*aFlags*/) {
    closeOne(mChange);
    closeOne(mKeeper);
    if (mDescriptor != 0) {
        ::close(descriptor());
        mDescriptor = 0;
    }
}

void ZTCNamedPipe::cancel() {
    eventfd_write(mCancel, 1);
}

// ---- Reading ----

bool ZTCNamedPipe::waitForActivity(const ZTCActivityWait& acrWait) {
    for (;;) {
        pollfd lPolls[] = {{descriptor(), POLLIN, 0}, {mCancel, POLLIN, 0}, {acrWait.mWatched, POLLIN, 0}};
        if (pollUntil(lPolls, std::size(lPolls), &acrWait.mDeadline) == 0) {
            throwErrno<ZTCTimeOutEx>("Nothing to read from", mPath.get(), ETIMEDOUT);
        }
        if (lPolls[1].revents != 0) {
            return false;
        }
        if ((lPolls[0].revents & POLLIN) != 0) {
            return true;
        }
        if (lPolls[2].revents != 0) {
            return false;
        }
        reopen();
    }
}

// The last writer has gone, and this end would say so until another comes. A new end says it only of writers
// that come after it. What one of them has written meanwhile stays in the pipe, because the old end is closed
// last.
void ZTCNamedPipe::reopen() {
    const int lNew = openAnew(O_RDONLY);
    ::close(descriptor());
    mDescriptor = static_cast<unsigned int>(lNew);
}

void ZTCNamedPipe::read(void* apBytes, unsigned int aLength) {
    auto* lpAt = static_cast<unsigned char*>(apBytes);
    timespec lDeadline = OsDeadlineIn(ZTPeriod(ZTP_MessagePause));
    while (aLength != 0) {
        const ssize_t lRead = ::read(descriptor(), lpAt, aLength);
        if (lRead > 0) {
            lpAt += lRead;
            aLength -= static_cast<unsigned int>(lRead);
            lDeadline = OsDeadlineIn(ZTPeriod(ZTP_MessagePause));
        } else if (lRead == 0) {
            throw ZTCOpsException("The writer went away in the middle of a message", EPIPE);
        } else if (errno == EAGAIN) {
            pollfd lPolls[] = {{descriptor(), POLLIN, 0}, {mCancel, POLLIN, 0}};
            if (pollUntil(lPolls, std::size(lPolls), &lDeadline) == 0) {
                throw ZTCOpsException("The writer stopped in the middle of a message", ETIMEDOUT);
            }
            if (lPolls[1].revents != 0) {
                throwCancelled();
            }
        } else if (errno != EINTR) {
            fail("read", errno);
        }
    }
}

// ---- Writing ----

void ZTCNamedPipe::write(const iovec* apPieces, unsigned int aCount) {
    iovec lPieces[4];
    ZT_ASSERT(aCount <= std::size(lPieces), __LINE__, sFile);
    std::copy(apPieces, apPieces + aCount, lPieces);
    settle();
    const std::uint64_t lStart = mWritten;
    iovec* lpPiece = lPieces;
    iovec* const lpEnd = lPieces + aCount;
    while (lpPiece != lpEnd) {
        const ssize_t lWritten = writev(descriptor(), lpPiece, static_cast<int>(lpEnd - lpPiece));
        if (lWritten >= 0) {
            mWritten += static_cast<std::uint64_t>(lWritten);
            auto lRest = static_cast<std::size_t>(lWritten);
            for (; lpPiece != lpEnd && lRest >= lpPiece->iov_len; ++lpPiece) {
                lRest -= lpPiece->iov_len;
            }
            if (lpPiece != lpEnd) {
                lpPiece->iov_base = static_cast<unsigned char*>(lpPiece->iov_base) + lRest;
                lpPiece->iov_len -= lRest;
            }
        } else if (errno == EPIPE) {
            if (isHalfRead()) {
                drop();
                if (mEndOfRead > lStart) {
                    return;  // it was this message: the rest of it is for nobody
                }
            }
            setKeeper(true);
        } else if (errno == EAGAIN) {
            waitUntilWritable();
        } else if (errno != EINTR) {
            fail("write", errno);
        }
    }
    orNoMemory([&] { mEnds.push_back(mWritten); });
    setKeeper(false);
}

void ZTCNamedPipe::waitUntilWritable() {
    // Behind the keeper nobody sees a reader that comes, takes too little to make room, and goes: any reading
    // ends this wait, and the keeper with it.
    ZTCDescriptor lReadings;
    if (mKeeper >= 0) {
        lReadings = ZTCDescriptor(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
        inotify_add_watch(lReadings.get(), ZTSDescriptorPath(mIdentity).mText, IN_ACCESS);
        if (isHalfRead()) {
            setKeeper(false);
            return;
        }
    }
    pollfd lPolls[] = {{descriptor(), POLLOUT, 0}, {mCancel, POLLIN, 0}, {lReadings.get(), POLLIN, 0}};
    pollUntil(lPolls, std::size(lPolls), nullptr);
    if (lPolls[1].revents != 0) {
        throwCancelled();
    }
    setKeeper(false);  // somebody reads: from now on its going away is seen
}

// With a reading end of our own the pipe takes bytes although nobody else has one; they stay in it, because
// the writing end stays open.
void ZTCNamedPipe::setKeeper(bool aOn) {
    if (aOn && mKeeper < 0) {
        mKeeper = openAnew(O_RDONLY);
    } else if (!aOn) {
        closeOne(mKeeper);
    }
}

unsigned int ZTCNamedPipe::unread() const {
    int lUnread = 0;
    if (ioctl(descriptor(), FIONREAD, &lUnread) != 0) {
        fail("ioctl FIONREAD", errno);
    }
    return static_cast<unsigned int>(lUnread);
}

std::uint64_t ZTCNamedPipe::readSoFar() const {
    return mWritten - unread();
}

bool ZTCNamedPipe::hasReader() const {
    pollfd lPoll{descriptor(), 0, 0};
    return poll(&lPoll, 1, 0) == 0;
}

// Whether what is in the pipe begins in the middle of a message.
bool ZTCNamedPipe::isHalfRead() {
    const std::uint64_t lRead = readSoFar();
    std::uint64_t lStart = mEndOfRead;
    while (!mEnds.empty() && mEnds.front() <= lRead) {
        lStart = mEndOfRead = mEnds.front();
        mEnds.pop_front();
    }
    return lRead != lStart;
}

void ZTCNamedPipe::settle() {
    epoll_event lChange;
    while (epoll_wait(mChange, &lChange, 1, 0) > 0) {
    }
    if (!hasReader() && isHalfRead()) {
        drop();
    }
}

// Takes what is left of the message that was half read out of the pipe. One that is still being written ends
// where it has got to.
void ZTCNamedPipe::drop() {
    const std::uint64_t lEnd = mEnds.empty() ? mWritten : mEnds.front();
    setKeeper(true);
    unsigned char lBytes[64 * 1024];
    unsigned long lDropped = 0;
    for (std::uint64_t lLeft = lEnd - readSoFar(); lLeft != 0;) {
        const ssize_t lRead = ::read(mKeeper, lBytes, std::min<std::uint64_t>(lLeft, sizeof lBytes));
        if (lRead <= 0) {
            break;  // somebody who came in this moment has read it
        }
        lDropped += static_cast<unsigned long>(lRead);
        lLeft -= static_cast<std::uint64_t>(lRead);
    }
    setKeeper(false);
    mEndOfRead = lEnd;
    if (!mEnds.empty()) {
        mEnds.pop_front();
    }
    Log(ZTLL_Warning, sFile, "The reader of %s went away in the middle of a message, %lu bytes were dropped",
        mPath.get(), lDropped);
}

void ZTCNamedPipe::fail(const char* apOperation, int aErrno) const {
    throwErrno<ZTCOsException>(apOperation, mPath.get(), aErrno);
}

void ZTCNamedPipe::throwCancelled() const {
    throw ZTCHaltEx("The process is to exit", ECANCELED);
}
