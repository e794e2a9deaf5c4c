// What keeps the store's threads from their work, and who is told of it.
#pragma once

#include <functional>
#include <mutex>
#include <optional>

#include "ServiceLog.h"
#include "StoreError.h"

class ZTCSnBuffer;
class ZTCSnFigures;

/// Any thread: a thread that waits for its disk can tell of nothing, so others ask.
class ZTCStoreTrouble {
  public:
    using Clock = std::chrono::steady_clock;

    /// From then on it stands still.
    static constexpr std::chrono::seconds StandsAfter{2};
    /// So long a lock may be held before it is worth a line.
    static constexpr std::chrono::seconds BusyAfter{1};

    ZTCStoreTrouble(const ZTCSnBuffer& acrBuffer, ZTCSnFigures& arFigures, ZTCServiceLog& arLog);

    /// Something with the disk begins, "writing", and ends.
    void begin(const char* apDoing);
    void succeed();
    void fail(ZTEStoreFault aFault, const std::string& acrWhy);

    /// Why nothing is written, and what waits; empty: it is written.
    std::string getText() const;
    /// Tells of what lasts.
    void tell();

  private:
    std::string getTextAt(Clock::time_point aNow) const;
    using Tell = void (ZTCServiceTrouble::*)(const std::string&, Clock::time_point);
    void tellAt(Clock::time_point aNow, Tell aTell);

    const ZTCSnBuffer& mrBuffer;
    ZTCSnFigures& mrFigures;
    mutable std::mutex mLock;
    ZTCServiceTrouble mTold;
    const char* mpDoing = nullptr;
    Clock::time_point mBegan;
    std::string mWhy;
    bool mIsBusy = false;
    Clock::time_point mFailsSince;
};
