// The log: one line a record, every line whole, nothing thrown away for speed.
//
// Any thread may log at any time, also before the log file is known and while the process ends. A caller
// copies the record's arguments into a ring of its own thread and goes on; one writer thread formats and
// writes the rings in order of time (LogRing.h, LogLine.h, LogFile.h). A caller waits only when its ring is
// full, or for a record at ZTLL_Highest, ZTLL_Abnormal or ZTLL_Error: that one has been written to the file
// when the call returns. A masked record costs one load and one branch.
//
// A line: UTC time to the microsecond, process.thread, tag, file:line, function, text.
//
//     2026-11-21T02:46:01.123456Z 1234.1240 -N- ScopeAgentMain:57 main: Starting the ScopeAgent
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "LogRecord.h"

/// A level: its bit in the log code and its tag.
struct ZTCLogLevel {
    unsigned int mBit;
    const char* mpTag;
};

inline constexpr ZTCLogLevel ZTLL_Highest{1, "-H-"};       ///< failed assertions, what must always be known
inline constexpr ZTCLogLevel ZTLL_Abnormal{2, "-A-"};      ///< a thread ended abnormally
inline constexpr ZTCLogLevel ZTLL_Error{8, "-E-"};         ///< errors
inline constexpr ZTCLogLevel ZTLL_Warning{16, "-W-"};      ///< warnings
inline constexpr ZTCLogLevel ZTLL_Notice{32, "-N-"};       ///< notices
inline constexpr ZTCLogLevel ZTLL_Information{64, "-I-"};  ///< information
inline constexpr ZTCLogLevel ZTLL_Trace{128, "-T-"};       ///< "Entered" and "Left" of functions

/// Records of these levels are in the file when the call returns.
inline constexpr unsigned int ZTLL_WrittenAtOnce = ZTLL_Highest.mBit | ZTLL_Abnormal.mBit | ZTLL_Error.mBit;

/// Levels 1 to 32; what is written until setLogCode says otherwise.
inline constexpr unsigned int ZTLogCodeDefault = 63;

// The process-wide settings of the log. Safe from any thread.

/// Sets the mask of the levels that are written.
void setLogCode(unsigned int aCode);
void getLogCode(unsigned int& arCode);

/// Sets the name of the log file, at most PATH_MAX - 1 bytes, else ZTCInvalidEx. Takes effect with openLog.
void setLogFilePath(const char* apPath);
/// The name that setLogFilePath was given last; "" before. Valid until the next setLogFilePath.
const char* getLogFilePath();

// The life of the log. Main thread only.

/// Opens (appending, making it with mode 0640, following no symbolic link) the file that setLogFilePath
/// named. What was logged so far is kept until then and comes first in it. Throws ZTCOsException.
void openLog();

/// Starts the writer thread, with every signal blocked. Without it records are written when a ring is full,
/// when one must be written at once, by flushLog and at exit. Throws ZTCOsException. The thread does not
/// survive a fork: the child calls this again.
void startLogWriter();

/// Writes what is pending, then opens the file's name anew. The old file stays in use, and an error is
/// logged, when that fails.
void reopenLog();

/// What has been logged, and what will be until openLog, is shown nowhere: for help and version.
void discardLog();

/// While set, records of ZTLL_Highest and ZTLL_Error that go to the file are shown on standard error too.
void setLogEcho(bool aOn);

/// Writes everything that was logged before the call. Any thread.
void flushLog();

namespace ztlog {

extern std::atomic<unsigned int> gCode;

/// Makes room for a record of so many bytes in the calling thread's ring, waiting if there is none, and reads
/// the clock. What it returns is to be filled in, and then published, by the same thread.
ZTCLogRecord& begin(std::size_t aSize);
void publish();

template <class... Arguments>
std::uint64_t putArguments(const Site& acrSite, const Arguments&... acrArguments) {
    ZTCLogRecord& lrRecord = begin(ZTCLogRecord::sizeWith(acrArguments...));
    const std::uint64_t lStamp = lrRecord.mStamp;
    lrRecord.fill(acrSite, acrArguments...);
    publish();
    return lStamp;
}

/// Puts one record, whatever its level, and returns its time. Not inline: one function serves all calls with
/// arguments of the same types.
template <class... Arguments>
[[gnu::noinline]] std::uint64_t put(unsigned int aLevel, const char* apTag, unsigned int aLine,
                                    const char* apFunction, const char* apFile, const char* apFormat,
                                    Arguments... aArguments) {
    return putArguments({apTag, apFunction, apFile, apFormat, aLevel, aLine}, argument(aArguments)...);
}

/// Before the process ends: writes what is pending (to standard error when no file was opened), but waits at
/// most 5 seconds for whoever is writing now, and for nobody who still logs. The writer thread ends.
void finish();

}  // namespace ztlog

/// Writes one record when the level's bit is set in the log code. The format is a printf literal, checked
/// against the arguments by the compiler (integers, pointers, NUL-terminated text; no floating point). Tag,
/// function, file and format must live as long as the process; the arguments are copied. Never throws;
/// allocates nothing once the file is open. Any thread. Text beyond 4 KiB an argument or 16 KiB a record ends
/// in "[cut]".
template <class... Arguments>
void PrintLogMessageWithTimeStamp(unsigned int aLevel, const char* apTag, unsigned int aLine,
                                  const char* apFunction, const char* apFile,
                                  ZTCLogFormat<std::type_identity_t<Arguments>...> aFormat,
                                  Arguments... aArguments) {
    if ((ztlog::gCode.load(std::memory_order_relaxed) & aLevel) == 0) {
        return;
    }
    ztlog::put(aLevel, apTag, aLine, apFunction, apFile, aFormat.mpText, aArguments...);
    if ((aLevel & ZTLL_WrittenAtOnce) != 0) {
        flushLog();
    }
}

/// Whether records of the level are written: for arguments that cost something to make.
inline bool isLogged(const ZTCLogLevel& acrLevel) {
    return (ztlog::gCode.load(std::memory_order_relaxed) & acrLevel.mBit) != 0;
}

/// The same with the line and function of the call, for records whose line is not stated.
template <class... Arguments>
void Log(const ZTCLogLevel& acrLevel, const char* apFile,
         ZTCLogFormat<std::type_identity_t<Arguments>...> aFormat, Arguments... aArguments) {
    PrintLogMessageWithTimeStamp<Arguments...>(acrLevel.mBit, acrLevel.mpTag, aFormat.mLine,
                                               aFormat.mpFunction, apFile, aFormat, aArguments...);
}

/// Writes one record by another function and line than the call's (the format's), and returns its time in
/// nanoseconds since 1970. One reading of the clock serves the caller and the log: when the level is masked,
/// or the format is none, it is only read.
template <class... Arguments>
std::uint64_t LogAndTime(const ZTCLogLevel& acrLevel, const char* apFunction, const char* apFile,
                         const ZTCLogFormat<std::type_identity_t<Arguments>...>& acrFormat,
                         Arguments... aArguments) {
    if (acrFormat.mpText == nullptr || !isLogged(acrLevel)) {
        return ztlog::now();
    }
    return ztlog::put(acrLevel.mBit, acrLevel.mpTag, acrFormat.mLine, apFunction, apFile, acrFormat.mpText,
                      aArguments...);
}

/// Traces a function: "Entered" when made, "Left" when it goes.
class ZTCTraceScope {
  public:
    explicit ZTCTraceScope(const char* apFile, unsigned int aEntered = __builtin_LINE(),
                           const char* apFunction = __builtin_FUNCTION())
        : ZTCTraceScope(apFile, aEntered, aEntered, apFunction) {}

    /// For functions whose two lines are stated.
    ZTCTraceScope(const char* apFile, unsigned int aEntered, unsigned int aLeft,
                  const char* apFunction = __builtin_FUNCTION())
        : mpFile(apFile), mpFunction(apFunction), mLeft(aLeft) {
        trace(aEntered, "Entered");
    }
    ~ZTCTraceScope() { trace(mLeft, "Left"); }
    ZTCTraceScope(const ZTCTraceScope&) = delete;
    ZTCTraceScope& operator=(const ZTCTraceScope&) = delete;

  private:
    void trace(unsigned int aLine, const char* apText) const {
        PrintLogMessageWithTimeStamp(ZTLL_Trace.mBit, ZTLL_Trace.mpTag, aLine, mpFunction, mpFile, "%s",
                                     apText);
    }

    const char* mpFile;
    const char* mpFunction;
    unsigned int mLeft;
};
