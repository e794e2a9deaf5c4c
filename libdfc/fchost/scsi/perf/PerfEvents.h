// Events of the kernel's tracepoints, taken on all processors by perf_event_open().
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "KernelFile.h"
#include "PerfProcessor.h"

/// One thread. The processors' numbers come from sysfs, below aSysfs.
class ZTCPerfEvents {
  public:
    /// Throws ZTCScsiNotAvailable, or std::system_error.
    ZTCPerfEvents(std::vector<ZTSPerfEvent> aEvents, std::string aSysfs);

    /// For poll(). It is told once of a sample: who has seen it readable is to take.
    int getFile() const { return mFile.get(); }
    /// Calls the function with each sample that there is.
    void take(const ZTCPerfRing::Take& acrTake);
    /// How many did not come since it was asked last. Exact as soon as all that came has been taken; on a
    /// kernel before 6.0, as soon as the next one on the same processor has.
    std::uint64_t takeLost();
    /// From now on takes what happens on those that have come, too: with the rights of the constructor.
    void lookForProcessors();
    /// Why events of some processors are not heard. Empty: all are.
    const std::string& getRefusal() const { return mRefusal; }

  private:
    void open(unsigned int aNumber);

    const std::vector<ZTSPerfEvent> mEvents;
    const std::string mSysfs;
    const ZTCKernelFile mFile;                                              // epoll, over all
    std::map<unsigned int, std::unique_ptr<ZTCPerfProcessor>> mProcessors;  // by their numbers
    std::vector<std::unique_ptr<ZTCPerfProcessor>> mStopped;                // that are only to be read out
    std::uint64_t mLost = 0;                                                // on those that are no more
    std::string mRefusal;
};
