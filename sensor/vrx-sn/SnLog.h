// What vrx-sn has to say: a line each, to the journal, or to standard error where there is none.
#pragma once

#include <atomic>
#include <cstdint>

/// As syslog numbers them.
enum ZTESnLevel : unsigned char { ZTSL_Error = 3, ZTSL_Warning = 4, ZTSL_Notice = 5, ZTSL_Info = 6 };

/// Any thread. It never waits: a line that cannot be written at once is dropped, and counted.
class ZTCSnLog {
  public:
    ZTCSnLog();

    /// A printf literal is the message's name: docs/sensor.md has a row for each from ZTSL_Notice up.
    __attribute__((format(printf, 3, 4))) void note(ZTESnLevel aLevel, const char* apFormat, ...);
    std::uint64_t getLost() const { return mLost; }

  private:
    std::atomic<std::uint64_t> mLost{0};
};
