// What the kernel's Fibre Channel transport tells of the fabric's performance.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "Fpin.h"
#include "Ports.h"

/// One thread.
class ZTCFcMessages {
  public:
    /// What one receive has brought: the descriptors of its FPINs are added, each with the port of the host
    /// that was told; all zeros: the host does not show it. Throws std::bad_alloc: a message is taken whole,
    /// or counted as lost; those behind it are missed by the next one.
    void take(std::span<const unsigned char> aBytes, const ZTSHostPorts& acrPorts, ZTNanoseconds aTime,
              std::vector<ZTSFpin>& arFpins);

    /// Some may have been lost. How many, the number of a message behind them tells; where none comes soon or
    /// none came before, it was one at least.
    void noteLoss(ZTNanoseconds aTime);
    /// From time to time.
    void step(ZTNanoseconds aTime);

    std::uint64_t countFpins() const { return mFpins; }  ///< messages that were one
    /// With something that is not what its length says.
    std::uint64_t countMalformed() const { return mMalformed; }
    /// Messages that never came, by their numbers, or that there was no memory for. Never less than it was.
    std::uint64_t countLost() const { return mLost; }

  private:
    void count(std::uint32_t aNumber);

    std::optional<std::uint32_t> mNextNumber;  // that the next message is expected to have
    std::uint64_t mFpins = 0, mMalformed = 0, mLost = 0;
    std::uint64_t mLate = 0;  // messages that were told as lost before a number told it, or came all the same
    std::optional<ZTNanoseconds> mLossAt;  // that no number has told of yet
};
