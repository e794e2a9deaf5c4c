// Where SCSI commands that have failed are learned from: the kernel, in one of two ways, or a test.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "ScsiEvents.h"

/// Commands that have failed alike.
struct ZTSScsiFailure {
    ZTSScsiKey mKey{};
    std::uint32_t mTag = 0;  ///< of the last of them
    std::uint64_t mCount = 1;
};
using ZTScsiFailures = std::vector<ZTSScsiFailure>;

/// A way is not to be had on this system, or not with our rights; what() is the reason, for the journal.
class ZTCScsiNotAvailable : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// One thread. Nothing of it stays in the kernel when the process has gone, however it went. Failures are
/// added to those of the caller; for want of memory std::bad_alloc is thrown, and what was not added comes
/// the next time, or counts as lost.
class ZTCScsiSource {
  public:
    ZTCScsiSource() = default;
    virtual ~ZTCScsiSource() = default;
    ZTCScsiSource(const ZTCScsiSource&) = delete;
    ZTCScsiSource& operator=(const ZTCScsiSource&) = delete;

    /// For poll(): readable when take() has something.
    virtual int getFile() const = 0;
    /// What there is at once. Does not wait.
    virtual void take(ZTScsiFailures& arFailures) = 0;
    /// What the kernel has counted since the last time, behind what take() brought: wanted some time after a
    /// take() that brought something, and not else. May wait for as long as the kernel takes to agree on it,
    /// some tens of milliseconds.
    virtual void takeRepeats(ZTScsiFailures& arFailures) = 0;
    /// How many commands failed that nobody can tell more of, since it was asked last.
    virtual std::uint64_t takeLost() = 0;
    /// How many ended that nobody has looked at since then, failed or not: another was just looked at on
    /// their processor.
    virtual std::uint64_t takeUnseen() { return 0; }
    /// Processors may have come: to be called when the kernel says so, and now and then for those that could
    /// not be taken in. Throws std::bad_alloc: to be called again.
    virtual void lookForProcessors() {}
    /// How they are learned, and what is missing that way, if anything: for the journal.
    virtual std::string describe() const = 0;
};
