// A point in time, to the nanosecond, by the system's clock.
#pragma once

#include <cstdint>

class ZTCEncodableOutStream;

class ZTCDateTime {
  public:
    static constexpr unsigned int EncodedSize = 12;

    /// 1970-01-01T00:00:00Z.
    ZTCDateTime() = default;
    /// From nanoseconds since then.
    explicit ZTCDateTime(std::uint64_t aNanoseconds)
        : mSeconds(aNanoseconds / NanosecondsPerSecond),
          mNanoseconds(static_cast<std::uint32_t>(aNanoseconds % NanosecondsPerSecond)) {}

    /// "." is now. Other text is ZTCInvalidEx, the value unchanged.
    void __set(const char* apText);

    /// Seconds as two 32-bit words, high first, then nanoseconds: 12 bytes.
    void encode(ZTCEncodableOutStream& arStream) const;
    /// The same into 12 bytes of room; returns the address behind them.
    unsigned char* encode(unsigned char* apTo) const;

  private:
    static constexpr std::uint32_t NanosecondsPerSecond = 1000000000;

    std::uint64_t mSeconds = 0;
    std::uint32_t mNanoseconds = 0;
};
