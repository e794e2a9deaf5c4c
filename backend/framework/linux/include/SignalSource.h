// The process's signals, taken like input: no handler runs.
#pragma once

#include "Descriptor.h"

/// SIGTERM, SIGINT and SIGHUP wait here to be taken; SIGPIPE and SIGXFSZ are ignored, so that a pipe without
/// reader and a file at its limit are errors of the write. Made on the main thread before any other thread
/// starts, because threads inherit what is blocked.
class ZTCSignalSource {
  public:
    /// Throws ZTCOsException.
    ZTCSignalSource();

    /// Readable while a signal waits.
    int getDescriptor() const { return mDescriptor.get(); }

    /// The number of a signal that waits, or 0.
    int take();

  private:
    ZTCDescriptor mDescriptor;
};
