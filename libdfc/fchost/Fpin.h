// What a fabric tells of its performance: the descriptors of an FPIN, as an ELS brings them.
#pragma once

#include <functional>
#include <span>

#include "FcStatistics.h"

struct ZTSFcFpin {
    ZTEFcFpinFigure mFigure = ZTFP_Other;
    std::uint32_t mNumber = 0;     ///< the event; of a delivery the reason, of another descriptor its tag
    std::uint32_t mModifier = 0;   ///< of the event
    std::uint32_t mCount = 0;      ///< of a link's integrity: errors
    std::uint64_t mDetecting = 0;  ///< the port's name; both are 0 where there is none
    std::uint64_t mAttached = 0;

    bool operator==(const ZTSFcFpin&) const = default;
};

/// Calls the function with each descriptor that is whole. False: something is not what its length says.
bool readFpin(std::span<const unsigned char> aEls, const std::function<void(const ZTSFcFpin&)>& acrDo);

/// Counts them, and tells of them in the journal when a row has one, ten, a hundred and so on. One thread.
class ZTCFcFpins {
  public:
    ZTCFcFpins(ZTCFcStatistics& arStatistics, const std::string& acrLog)
        : mrStatistics(arStatistics), mJournal(acrLog) {}

    void take(std::uint32_t aHost, std::span<const unsigned char> aEls);

  private:
    void take(std::uint32_t aHost, const ZTSFcFpin& acrFpin);

    ZTCFcStatistics& mrStatistics;
    const ZTCFcJournal mJournal;
};
