// What fabrics tell of their performance, counted and told.
#pragma once

#include <span>

#include "FcStatistics.h"
#include "FpinDescriptor.h"

/// Counts descriptors, and tells of them in the journal when a row has one, ten, a hundred and so on. One
/// thread.
class ZTCFcFpins {
  public:
    ZTCFcFpins(ZTCFcStatistics& arStatistics, const std::string& acrLog)
        : mrStatistics(arStatistics), mJournal(acrLog) {}

    void take(std::uint32_t aHost, std::span<const unsigned char> aEls);

  private:
    void take(std::uint32_t aHost, const ZTSFpinDescriptor& acrOne);

    ZTCFcStatistics& mrStatistics;
    const ZTCFcJournal mJournal;
};
