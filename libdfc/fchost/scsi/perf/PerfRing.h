// The memory in which the kernel lays the samples of perf events.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>

struct perf_event_header;
struct perf_event_mmap_page;

/// What did not come as a sample.
struct ZTSPerfLosses {
    std::uint64_t mTold = 0;       ///< there was no room for them, as the kernel says in the ring, later
    std::uint64_t mMalformed = 0;  ///< records that are not what they say
};

/// One thread; the kernel writes meanwhile.
class ZTCPerfRing {
  public:
    using Take = std::function<void(const unsigned char* apSample, std::size_t aSize)>;

    /// aSize: of the data, a power of two.
    ZTCPerfRing(perf_event_mmap_page* apControl, const unsigned char* apData, std::size_t aSize)
        : mpControl(apControl), mpData(apData), mSize(aSize) {}

    /// Calls the function with the raw data of each sample that was there when it began. False: the ring was
    /// empty.
    bool read(const Take& acrTake, ZTSPerfLosses& arLosses);

  private:
    void copy(std::uint64_t aFrom, unsigned char* apTo, std::size_t aSize) const;
    perf_event_header copyRecord(std::uint64_t aFrom, std::uint64_t aLeft, unsigned char* apRecord) const;

    perf_event_mmap_page* const mpControl;
    const unsigned char* const mpData;
    const std::size_t mSize;
};
