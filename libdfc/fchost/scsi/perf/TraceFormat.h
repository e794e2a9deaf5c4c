// How the event of a tracepoint lies in memory, by what the kernel's tracing directory says of it.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

/// Where a number stands in an event.
struct ZTSTraceField {
    std::uint16_t mOffset = 0;
    std::uint16_t mSize = 0;  ///< 1, 2, 4 or 8 bytes

    std::size_t getEnd() const { return std::size_t{mOffset} + mSize; }
};

class ZTCTraceFormat {
  public:
    /// Below where tracefs is mounted; such as "scsi", "scsi_dispatch_cmd_done". Throws ZTCScsiNotAvailable:
    /// it is not there, must not be read, or is not understood.
    ZTCTraceFormat(const std::string& acrTracing, const std::string& acrGroup, const std::string& acrName);
    /// The text of a file "format".
    explicit ZTCTraceFormat(std::string_view aText);

    /// What the kernel calls the tracepoint by, until its module is loaded again.
    std::uint16_t getId() const { return mId; }
    /// Nothing: the event has no such field, or it is no number.
    std::optional<ZTSTraceField> find(std::string_view aName) const;

  private:
    void addField(std::string_view aLine);

    std::uint16_t mId = 0;
    std::map<std::string, ZTSTraceField, std::less<>> mFields;  // size 0: no number
};

/// The event has the field whole.
std::uint64_t readTraceNumber(const unsigned char* apEvent, const ZTSTraceField& acrField);
