// The metrics for Prometheus (docs/metrics.md).
#pragma once

#include <string>

#include "StoreReader.h"
#include "WebAnswer.h"
#include "WebState.h"

/// What the history has counted, as it was last read, beside what vrx-sn and the programs that send it tell
/// of themselves now. Any thread.
class ZTCWebMetrics {
  public:
    /// aSinks: the directory with the figures of those that send, "/run/vrx-ship".
    ZTCWebMetrics(ZTCWebHealth& arHealth, std::string aSinks);

    /// Reads the history anew, if that was not done just now. Throws ZTCStoreError: then all is as it was.
    void read(ZTCStoreReader& arReader);
    /// Waits for nothing: figures lie in memory.
    ZTSWebAnswer answer() const;
};
