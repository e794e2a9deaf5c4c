// What was lost, in a line each ten seconds: the history has each loss.
#pragma once

#include <chrono>
#include <map>
#include <string>
#include <vector>

#include "Record.h"
#include "ServiceLog.h"

/// One thread at a time.
class ZTCLossLines {
  public:
    explicit ZTCLossLines(ZTCServiceLog& arLog) : mrLog(arLog) {}

    void take(const std::vector<ZTSLoss>& acrLosses, std::chrono::steady_clock::time_point aNow) noexcept;

  private:
    ZTCServiceLog& mrLog;
    std::map<std::string, std::uint64_t> mLosses;  ///< that no line tells of yet
    std::chrono::steady_clock::time_point mNext;
};
