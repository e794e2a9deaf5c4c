// A sample of one of the tracepoints of SCSI commands, read by the tracepoint's format.
#pragma once

#include <array>
#include <cstddef>
#include <optional>

#include "ScsiSource.h"
#include "TraceFormat.h"

class ZTCScsiSample {
  public:
    /// Throws ZTCScsiNotAvailable: the format has not what is needed.
    ZTCScsiSample(const ZTCTraceFormat& acrFormat, ZTEScsiTrace aTrace);

    std::uint16_t getId() const { return mId; }
    bool hasSense() const;
    /// Nothing: it is of another tracepoint, or shorter than the format says.
    std::optional<ZTSScsiFailure> read(const unsigned char* apSample, std::size_t aSize) const;

  private:
    enum Field : unsigned char {
        Type,
        Host,
        Channel,
        Target,
        Lun,
        Result,
        OperationCode,
        Tag,  // this and those behind it are not in every kernel's
        SenseKey,
        Asc,
        Ascq,
        FieldCount,
    };
    static const char* const sNames[FieldCount];

    std::uint16_t mId;
    ZTEScsiTrace mTrace;
    std::array<ZTSTraceField, FieldCount> mFields;  // of size 0, and so read as 0: not there
    std::size_t mEnd = 0;                           // of the last of them
};
