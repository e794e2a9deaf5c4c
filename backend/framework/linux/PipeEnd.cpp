#include "PipeEnd.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "Exception.h"
#include "NamedPipe.h"

namespace {

timespec sTimeLeft(const timespec& acrDeadline) {
    constexpr long long lSecond = 1000000000;  // nanoseconds
    timespec lNow;
    clock_gettime(CLOCK_MONOTONIC, &lNow);
    const long long lLeft =
        std::max((acrDeadline.tv_sec - lNow.tv_sec) * lSecond + (acrDeadline.tv_nsec - lNow.tv_nsec), 0LL);
    return {lLeft / lSecond, lLeft % lSecond};
}

}  // namespace

ZTCPipeEnd::ZTCPipeEnd(const ZTCPointer<ZTCPipeFile>& acrFile, int aCancel, ZTCDescriptor aEnd)
    : mFile(acrFile), mEnd(std::move(aEnd)), mCancel(aCancel) {
    // A smaller pipe only means more turns.
    static_cast<void>(fcntl(mEnd.get(), F_SETPIPE_SZ, ZTCNamedPipe::Capacity));
}

bool ZTCPipeEnd::waitFor(pollfd* apPolls, nfds_t aCount, const timespec* apDeadline) {
    for (;;) {
        const timespec lLeft = apDeadline != nullptr ? sTimeLeft(*apDeadline) : timespec{};
        const int lReady = ppoll(apPolls, aCount, apDeadline != nullptr ? &lLeft : nullptr, nullptr);
        if (lReady >= 0) {
            return lReady > 0;
        }
        if (errno != EINTR) {
            throwErrno<ZTCOsException>("ppoll", nullptr, errno);
        }
    }
}

void ZTCPipeEnd::throwCancelled() {
    throw ZTCHaltEx("The process is to exit", ECANCELED);
}
