// What a failed SCSI command is for the agent, and what its event looks like.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>

#include "FcStatistics.h"
#include "Registrations.h"
#include "ScsiSource.h"

/// The events, in the order of their figures.
enum ZTEScsiKind : unsigned char {
    ZTSK_QueueFull,
    ZTSK_DeviceBusy,
    ZTSK_CheckCondition,
    ZTSK_LunReset,
    ZTSK_TargetReset,
    ZTSK_QueueDepthChange,
    ZTSK_FcpReadCheckError,
    ZTSK_Count
};

/// The kind's row among those that begin with that of the first.
constexpr ZTEFcFigure toFcFigure(ZTEFcFigure aFirst, ZTEScsiKind aKind) {
    return static_cast<ZTEFcFigure>(unsigned{aFirst} + unsigned{aKind});
}

/// What becomes of a command: an event of a kind or, without one, a count.
struct ZTSScsiMeaning {
    std::optional<ZTEScsiKind> mKind;
    ZTEFcFigure mTotal;     ///< the row of all that is only counted of it
    ZTEFcLunFigure mByLun;  ///< and the one of its logical unit
};
ZTSScsiMeaning getScsiMeaning(const ZTSScsiKey& acrKey);

/// An event's number and payload.
class ZTCScsiEvent {
  public:
    static constexpr unsigned int MaxWords = 4;

    /// Of a failed command. aPort: the remote port's name, 0 if it is not known.
    ZTCScsiEvent(ZTEScsiKind aKind, const ZTSScsiFailure& acrFailure, std::uint64_t aPort);
    /// Of a queue whose depth has changed.
    ZTCScsiEvent(std::uint64_t aPort, std::uint64_t aLun, std::uint32_t aOld, std::uint32_t aNow);

    const ZTSFcEventId& getId() const { return mId; }
    std::span<const unsigned char> getPayload() const { return {mBytes.data(), mSize}; }

  private:
    void write(ZTEScsiKind aKind, std::uint64_t aPort, std::uint64_t aLun,
               std::span<const std::uint32_t> aWords);

    ZTSFcEventId mId;
    std::array<unsigned char, 16 + 4 * MaxWords> mBytes{};
    unsigned int mSize = 0;
};
