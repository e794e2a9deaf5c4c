// When the hosts are looked at next.
#pragma once

#include <algorithm>
#include <chrono>
#include <utility>

/// What the next look waits for.
enum ZTEFcNextLook : unsigned char {
    ZTFNL_Period,  ///< nothing has come: its time
    ZTFNL_Rest,    ///< something has come that a look is to settle: a short rest behind the last look
    ZTFNL_Turn,    ///< the last look was put off: the same rest, but this one is not put off again
};

/// One thread. A look "by the clock" is one that this tells the time of.
class ZTCFcSchedule {
  public:
    using Clock = std::chrono::steady_clock;

    explicit ZTCFcSchedule(std::chrono::milliseconds aPeriod) : mPeriod(aPeriod) {}

    /// The time of the next look by the clock.
    Clock::time_point getNext() const {
        return mLast + (mNext == ZTFNL_Period ? mPeriod : std::min(Rest, mPeriod));
    }
    /// A look is wanted soon.
    void hasten() { mNext = mNext == ZTFNL_Period ? ZTFNL_Rest : mNext; }

    /// A look by the clock begins: should it fail, the next one has its time from now.
    void begin() {
        mLast = Clock::now();
        mMayLookBetween = true;
    }
    /// The look that has begun is to be put off. False: it is its turn.
    bool putOff() {
        const bool lMayBe = mNext != ZTFNL_Turn;
        mNext = lMayBe ? ZTFNL_Turn : mNext;
        return lMayBe;
    }
    /// It takes in all that has come.
    void settle() { mNext = ZTFNL_Period; }
    /// It has ended, well: the next one has its time from here.
    void end() { mLast = Clock::now(); }

    /// Whether there may be a look that is not by the clock: one between two that are.
    bool takeLookBetween() { return std::exchange(mMayLookBetween, false); }

  private:
    static constexpr std::chrono::milliseconds Rest{50};

    const std::chrono::milliseconds mPeriod;
    Clock::time_point mLast = Clock::now();
    ZTEFcNextLook mNext = ZTFNL_Period;
    bool mMayLookBetween = true;
};
