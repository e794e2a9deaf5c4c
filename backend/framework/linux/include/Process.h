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

    /// Whether it ended within so many seconds.
    bool waitForEnd(unsigned int aSeconds) const;

    /// Throws ZTCOsException.
    void sendSignal(int aSignal) const;

  private:
    ZTCDescriptor mDescriptor;
};
