// From a SCSI failure to callbacks and counts.
#pragma once

#include "Boards.h"
#include "FcSettings.h"
#include "ScsiDepths.h"
#include "ScsiRate.h"
#include "ScsiStrangers.h"
#include "ScsiTargets.h"

/// One thread. Nothing throws: what cannot be told for want of memory counts as lost.
class ZTCScsiTeller {
  public:
    using Time = std::chrono::steady_clock::time_point;

    ZTCScsiTeller(const ZTSFcSettings& acrSettings, const ZTCFcBoards& acrBoards,
                  ZTCFcRegistrations& arRegistrations, ZTCFcStatistics& arStatistics);

    // One event a command, as many as the rate allows; the rest is counted, as is what has no kind. What
    // nobody has registered for is not counted either.

    void tell(const ZTSScsiFailure& acrFailure, Time aNow);
    void tell(const ZTSScsiDepthChange& acrChange, Time aNow);

    /// Hosts may have come or gone.
    void noteChange() { mStrangers.noteChange(); }
    /// Whether failures are kept, of hosts that no look has found yet.
    bool isKeeping() const { return !mStrangers.isEmpty(); }
    /// Tells those whose host has been found. aIsLast: the others are lost.
    void settle(Time aNow, bool aIsLast);

  private:
    void tellStranger(const ZTSScsiFailure& acrFailure, const std::optional<ZTSFcPlace>& acrPlace, Time aNow);
    void tellKnown(const ZTSScsiFailure& acrFailure, const ZTSFcPlace& acrPlace, Time aNow);
    std::uint64_t callBack(ZTEScsiKind aKind, const ZTCScsiEvent& acrEvent, std::uint32_t aBoard,
                           std::uint64_t aCount, Time aNow);

    const ZTCFcBoards& mrBoards;
    ZTCFcRegistrations& mrRegistrations;
    ZTCFcStatistics& mrStatistics;
    ZTCScsiTargets mTargets;
    ZTCScsiStrangers mStrangers;
    ZTCScsiRate mRate;
};
