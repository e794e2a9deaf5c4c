// What the agent, and a library in it, count about themselves, from the files that they keep for that.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ScopeWire.h"
#include "SensorFiles.h"
#include "WaitEnd.h"

struct ZTSStatistic {
    std::string mName;  ///< printable; as events_total{kind="plogi"}
    std::uint64_t mValue;

    /// Whether it only ever grows, so that it has a rate: so does every row of a host.
    bool isCounter() const {
        return mName.substr(0, mName.find('{')).ends_with("_total") ||
               mName.find("{host=") != std::string::npos;
    }
};

/// The figures of one moment.
struct ZTSStatistics {
    std::vector<ZTSStatistic> mRows;  ///< in the file's order, which never changes; more may come behind
    std::uint32_t mWake = 0;

    /// Nothing if there is no such row.
    std::optional<std::uint64_t> get(std::string_view aName) const;
};

/// Whose figures are wanted.
enum class ZTEStatisticsOf : unsigned char {
    Running,  ///< an agent's that runs
    Any,      ///< or those that one has left which was killed
    Anybody   ///< the same, of another program and another user
};

/// Reading costs the agent nothing, and works as often as one likes. One thread.
class ZTCAgentStatistics {
  public:
    using Time = std::chrono::system_clock::time_point;

    /// Opens the file of the agent in a directory, or ZTWireLibraryStatistics: that of the library over the
    /// kernel's transport, which the agent has loaded and which counts as the agent here. Throws
    /// ZTCNoAgentError (no file, or one that an agent has left that was killed), ZTCNoPermissionError,
    /// ZTCUnsafeFileError, ZTCSensorError (it is cut, or something else).
    explicit ZTCAgentStatistics(const std::string& acrDirectory, const char* apFile = ZTWireStatistics,
                                ZTEStatisticsOf aOf = ZTEStatisticsOf::Running);
    ~ZTCAgentStatistics();
    ZTCAgentStatistics(const ZTCAgentStatistics&) = delete;
    ZTCAgentStatistics& operator=(const ZTCAgentStatistics&) = delete;

    pid_t getProcess() const { return mProcess; }
    Time getStart() const { return mStart; }

    /// Whether every figure is as of now; else it may be a second old, and older while a disk stands still.
    bool isInMemory() const;

    /// Throws ZTCSensorError. When the agent has gone these are its last figures. aMostRows: no more than the
    /// first ones, which never move.
    ZTSStatistics read(std::size_t aMostRows = ~std::size_t{0}) const;
    /// `wake` alone. Read before a fetch, it is what to wait for behind it: so no change is missed. Throws as
    /// read does.
    std::uint32_t readWake() const;

    /// Whether the agent has removed its file, another has put its own there, the process is no more, or
    /// nobody holds the lock of the pid file: a caller who may not open that goes by the process alone. Then
    /// it is time for a new object. Three calls of the system.
    bool hasGone() const;

    /// Waits until `wake` is another than the one that was seen: the data that the agent holds has passed an
    /// eighth of its limit, and it is time to fetch. False: the time is over, a signal came, the agent has
    /// gone, or apEnd, if it is not null, has been ended (within a second where WaitEnd.h says so). Throws
    /// ZTCSensorError.
    bool waitForWake(std::uint32_t aSeen, std::chrono::milliseconds aTime,
                     const ZTCWaitEnd* apEnd = nullptr) const;

  private:
    std::string load(std::size_t aSize) const;
    template <class Value>
    Value headerAt(std::size_t aOffset) const;
    [[noreturn]] void refuse(const std::string& acrWhy) const;

    std::string mPath;
    ZTCSensorDescriptor mFile;
    std::optional<ZTCSensorDescriptor> mLock;  ///< the pid file; nothing: the caller may not open it
    ZTCSensorDescriptor mRunning;  ///< the process; not open: there is none, or this kernel has no such thing
    pid_t mProcess = 0;
    Time mStart;
    const void* mpHeader = nullptr;  ///< mapped; never read here, because the file may be cut by somebody
};
