// Another process, held so that its number cannot come to mean a different one.
#pragma once

#include <sys/types.h>

#include "Descriptor.h"

class ZTCProcess {
  public:
    /// Throws ZTCOsException when there is no such process.
    explicit ZTCProcess(pid_t aProcess);

    /// False once it has ended, also when nobody has collected its status yet.
    bool isAlive() const { return !waitForEnd(0); }

    /// Whether it ended within so many milliseconds.
    bool waitForEnd(unsigned int aMilliseconds) const;

    /// Throws ZTCOsException.
    void sendSignal(int aSignal) const;

  private:
    ZTCDescriptor mDescriptor;
};

/// Whether nothing of the process will ever run again, though it may still be there: its status has not been
/// collected, or the kernel waits in it for a disk that stands still.
bool OsIsZombie(pid_t aProcess);
