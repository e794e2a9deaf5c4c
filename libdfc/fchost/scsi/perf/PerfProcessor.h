// Events of the kernel's tracepoints on one processor.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "KernelFile.h"
#include "PerfRing.h"

/// A tracepoint, and which of its events are wanted.
struct ZTSPerfEvent {
    std::uint16_t mId;
    std::string mFilter;  ///< as tracing understands it; empty: all
};

/// One thread. All events come in one ring.
class ZTCPerfProcessor {
  public:
    /// Throws std::system_error: ENODEV if the processor is not there.
    ZTCPerfProcessor(const std::vector<ZTSPerfEvent>& acrEvents, unsigned int aNumber);
    /// Nothing comes before. Throws std::system_error.
    void start() const;

    /// For poll().
    int getFile() const { return mFiles.front().get(); }
    /// False: the processor has gone since it was opened, though it may be back.
    bool isRunning() const;
    void read(const ZTCPerfRing::Take& acrTake);
    /// Since it was asked last.
    std::uint64_t takeLost();

  private:
    struct Unmap {
        std::size_t mSize;
        void operator()(void* apStart) const;
    };
    using Mapping = std::unique_ptr<void, Unmap>;

    static Mapping map(int aFile);

    const std::vector<ZTCKernelFile> mFiles;
    const Mapping mMapping;  // of the first; the others write to it as well
    ZTCPerfRing mRing;
    ZTSPerfLosses mLosses;
    bool mHadAny = false;        // the ring, when it was read since losses were asked for
    std::uint64_t mDropped = 0;  // what the kernel counted till then
};
