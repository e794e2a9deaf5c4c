// The history as a thread that answers requests reads it.
#pragma once

#include <chrono>
#include <memory>

#include "StoreReader.h"

/// Opens the store when it is first asked, and again when another file stands in its place or it failed. One
/// thread; each that answers has its own.
class ZTCWebHistory {
  public:
    using Clock = std::chrono::steady_clock;

    explicit ZTCWebHistory(std::string aPath);
    ZTCWebHistory(const ZTCWebHistory&) = delete;
    ZTCWebHistory& operator=(const ZTCWebHistory&) = delete;

    /// To be called before a request's work: from aEnd on whatever is read throws ZTCStoreError (Busy).
    void begin(Clock::time_point aEnd);
    /// Throws ZTCStoreError.
    ZTCStoreReader& getReader();
    /// Behind an error of the store: it is opened anew the next time.
    void close() { mpReader.reset(); }

  private:
    const std::string mPath;
    Clock::time_point mEnd = Clock::time_point::max();
    std::unique_ptr<ZTCStoreReader> mpReader;
};
