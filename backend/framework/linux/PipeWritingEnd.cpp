#include "PipeWritingEnd.h"

#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <cerrno>
#include <iterator>

#include "Assert.h"
#include "Exception.h"
#include "Log.h"

namespace {

constexpr char sFile[] = "NamedPipe";  // the name that operators know its messages by

ZTCDescriptor sOpen(const ZTCPipeFile& acrFile) {
    const ZTCDescriptor lReader = acrFile.openEnd(O_RDONLY);
    return acrFile.openEnd(O_WRONLY);
}

unsigned int sUnread(const ZTCPipeFile& acrFile, const ZTCDescriptor& acrEnd) {
    int lUnread = 0;
    if (ioctl(acrEnd.get(), FIONREAD, &lUnread) != 0) {
        acrFile.fail("ioctl FIONREAD", errno);
    }
    return static_cast<unsigned int>(lUnread);
}

}  // namespace

ZTCPipeWritingEnd::ZTCPipeWritingEnd(const ZTCPointer<ZTCPipeFile>& acrFile, int aCancel)
    : ZTCPipeEnd(acrFile, aCancel, sOpen(*acrFile)), mChange(epoll_create1(EPOLL_CLOEXEC)) {
    epoll_event lChanges{};
    lChanges.events = EPOLLERR | EPOLLET;
    if (!mChange.isOpen() || epoll_ctl(mChange.get(), EPOLL_CTL_ADD, mEnd.get(), &lChanges) != 0) {
        mFile->fail("epoll", errno);
    }
    mWritten = sUnread(*mFile, mEnd);
    if (mWritten != 0) {
        // From an agent before this one: kept in the pipe by a sensor that still has it open.
        orNoMemory([this] { mEnds.push_back(mWritten); });
    }
}

void ZTCPipeWritingEnd::write(const iovec* apPieces, unsigned int aCount) {
    iovec lPieces[4];
    ZT_ASSERT(aCount <= std::size(lPieces), __LINE__, sFile);
    std::copy(apPieces, apPieces + aCount, lPieces);
    settle();
    const std::uint64_t lStart = mWritten;
    iovec* lpPiece = lPieces;
    iovec* const lpEnd = lPieces + aCount;
    while (lpPiece != lpEnd) {
        const ssize_t lWritten = writev(mEnd.get(), lpPiece, static_cast<int>(lpEnd - lpPiece));
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
                if (mFirst > lStart) {
                    return;  // it was this message: the rest of it is for nobody
                }
            }
            openOwnReader();
        } else if (errno == EAGAIN) {
            waitUntilWritable();
        } else if (errno != EINTR) {
            mFile->fail("write", errno);
        }
    }
    orNoMemory([&] { mEnds.push_back(mWritten); });
    mOwnReader.close();
}

void ZTCPipeWritingEnd::waitUntilWritable() {
    ZTCDescriptor lReading;
    if (mOwnReader.isOpen()) {
        lReading = mFile->watchReading();
        if (isHalfRead()) {  // somebody has read before it was watched
            mOwnReader.close();
            return;
        }
    }
    pollfd lPolls[] = {getEndPoll(POLLOUT), getCancelPoll(), {lReading.get(), POLLIN, 0}};
    waitFor(lPolls, std::size(lPolls), nullptr);
    if (lPolls[1].revents != 0) {
        throwCancelled();
    }
    mOwnReader.close();
}

void ZTCPipeWritingEnd::openOwnReader() {
    if (!mOwnReader.isOpen()) {
        mOwnReader = mFile->openEnd(O_RDONLY);
    }
}

bool ZTCPipeWritingEnd::hasReader() const {
    pollfd lPoll = getEndPoll(0);
    return poll(&lPoll, 1, 0) == 0;
}

// Whether what is in the pipe is anything but whole messages of this end. Forgets those that have been read
// whole: the list is never longer than what the pipe holds.
bool ZTCPipeWritingEnd::isHalfRead() {
    const std::uint64_t lUnread = sUnread(*mFile, mEnd);
    while (!mEnds.empty() && lUnread <= mWritten - mEnds.front()) {
        mFirst = mEnds.front();
        mEnds.pop_front();
    }
    return lUnread != mWritten - mFirst;
}

void ZTCPipeWritingEnd::settle() {
    epoll_event lChange;
    while (epoll_wait(mChange.get(), &lChange, 1, 0) > 0) {
    }
    const bool lHasReader = hasReader();  // asked first: until it has gone, a reader goes on reading
    if (isHalfRead() && !lHasReader) {
        drop();
    }
}

// Takes what is left of the message that was half read out of the pipe. One that is still being written ends
// where it has got to. More than this end has written and nobody read is somebody else's too, and stands
// nobody knows where between: all of it goes.
void ZTCPipeWritingEnd::drop() {
    std::uint64_t lUnread = sUnread(*mFile, mEnd);
    if (lUnread > mWritten - mFirst) {
        mEnds.clear();
    }
    const std::uint64_t lEnd = mEnds.empty() ? mWritten : mEnds.front();
    const std::uint64_t lBehind = mWritten - lEnd;  // stays
    openOwnReader();
    unsigned char lBytes[64 * 1024];
    unsigned long lDropped = 0;
    for (; lUnread > lBehind; lUnread = sUnread(*mFile, mEnd)) {
        const ssize_t lTaken =
            read(mOwnReader.get(), lBytes, std::min<std::uint64_t>(lUnread - lBehind, sizeof lBytes));
        if (lTaken <= 0) {
            break;  // somebody who came in this moment has read it
        }
        lDropped += static_cast<unsigned long>(lTaken);
    }
    mOwnReader.close();
    mFirst = lEnd;
    Log(ZTLL_Warning, sFile, "The reader of %s went away in the middle of a message, %lu bytes were dropped",
        mFile->getPath(), lDropped);
}
