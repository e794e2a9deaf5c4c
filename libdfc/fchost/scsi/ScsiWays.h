// The ways in which failed SCSI commands can be learned of.
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "FcSettings.h"
#include "FcStatistics.h"
#include "ScsiSource.h"

struct ZTSScsiWay {
    const char* mpName;
    ZTEFcFigure mFigure;                                    ///< 1 while it is used
    std::function<std::unique_ptr<ZTCScsiSource>()> mOpen;  ///< throws ZTCScsiNotAvailable
};
/// The first that is to be had is used.
using ZTScsiWays = std::vector<ZTSScsiWay>;

ZTScsiWays getScsiWays(ZTEScsiWays aWhich);
