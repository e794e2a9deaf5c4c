#include "PipeReadingEnd.h"

#include <fcntl.h>

#include <cerrno>
#include <iterator>

#include "Exception.h"
#include "NamedPipe.h"
#include "Os.h"
#include "Periods.h"

ZTCPipeReadingEnd::ZTCPipeReadingEnd(const ZTCPointer<ZTCPipeFile>& acrFile, int aCancel)
    : ZTCPipeEnd(acrFile, aCancel, acrFile->openEnd(O_RDONLY)) {}

bool ZTCPipeReadingEnd::waitForActivity(const ZTCActivityWait& acrWait) {
    for (;;) {
        pollfd lPolls[] = {getEndPoll(POLLIN), getCancelPoll(), {acrWait.mWatched, POLLIN, 0}};
        if (!waitFor(lPolls, std::size(lPolls), &acrWait.mDeadline)) {
            throwErrno<ZTCTimeOutEx>("Nothing to read from", mFile->getPath(), ETIMEDOUT);
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
        // The last writer has gone, and this end would say so until another comes. A new end says it only of
        // writers that come after it. What one of them has written meanwhile stays in the pipe, because the
        // old end is closed last.
        mEnd = mFile->openEnd(O_RDONLY);
    }
}

void ZTCPipeReadingEnd::read(void* apBytes, unsigned int aLength) {
    auto* lpAt = static_cast<unsigned char*>(apBytes);
    timespec lDeadline = OsDeadlineIn(ZTPeriod(ZTP_MessagePause));
    while (aLength != 0) {
        const ssize_t lRead = ::read(mEnd.get(), lpAt, aLength);
        if (lRead > 0) {
            lpAt += lRead;
            aLength -= static_cast<unsigned int>(lRead);
            lDeadline = OsDeadlineIn(ZTPeriod(ZTP_MessagePause));
        } else if (lRead == 0) {
            throw ZTCOpsException("The writer went away in the middle of a message", EPIPE);
        } else if (errno == EAGAIN) {
            pollfd lPolls[] = {getEndPoll(POLLIN), getCancelPoll()};
            if (!waitFor(lPolls, std::size(lPolls), &lDeadline)) {
                throw ZTCOpsException("The writer stopped in the middle of a message", ETIMEDOUT);
            }
            if (lPolls[1].revents != 0) {
                throwCancelled();
            }
        } else if (errno != EINTR) {
            mFile->fail("read", errno);
        }
    }
}
