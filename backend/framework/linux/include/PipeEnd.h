// What the two ends of a named pipe have in common: a descriptor that never blocks, and waits that a deadline
// or the end of the process cuts short.
#pragma once

#include <poll.h>

#include <ctime>

#include "Descriptor.h"
#include "PipeFile.h"
#include "Pointer.h"

/// Open as long as it exists.
class ZTCPipeEnd {
  protected:
    /// aCancel: readable once the process is to exit; stays its owner's.
    ZTCPipeEnd(const ZTCPointer<ZTCPipeFile>& acrFile, int aCancel, ZTCDescriptor aEnd);
    ~ZTCPipeEnd() = default;

    pollfd getEndPoll(short aEvents) const { return {mEnd.get(), aEvents, 0}; }
    pollfd getCancelPoll() const { return {mCancel, POLLIN, 0}; }
    /// Polls until the deadline (null: without limit). False when it has passed.
    static bool waitFor(pollfd* apPolls, nfds_t aCount, const timespec* apDeadline);
    [[noreturn]] static void throwCancelled();

    const ZTCPointer<ZTCPipeFile> mFile;
    ZTCDescriptor mEnd;

  private:
    const int mCancel;
};
