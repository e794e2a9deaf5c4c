// The log: one line a record, every line whole, and nobody who logs waits for its disk.
//
// Any thread may log at any time, also before the log file is known and while the process ends. A caller
// copies the record's arguments into a ring of its own thread and goes on (LogRing.h); one writer thread, and
// no other, formats and writes the rings in order of time (LogWriter.h, LogDrain.h, LogLine.h, LogFile.h). A
// record that finds its ring full is lost and counted; only the first at ZTLL_Warning or above waits, a tenth
// of a second at most, and after it nobody until the file has taken something. A masked record costs one load
// and one branch.
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

/// Records of these levels wake the writer from its rest; others are in the file within 100 ms.
inline constexpr unsigned int ZTLL_Urgent = ZTLL_Highest.mBit | ZTLL_Abnormal.mBit | ZTLL_Error.mBit;

/// Levels 1 to 32; what is written unless setLogCode says otherwise.
inline constexpr unsigned int ZTLogCodeDefault = 63;

// The process-wide settings of the log. Safe from any thread.

/// Sets the mask of the levels that are written. Until openLog records of all levels are kept, as many as the
/// ring of their thread holds; which of them are written, says the mask at openLog.
void setLogCode(unsigned int aCode);
void getLogCode(unsigned int& arCode);

/// Sets the name of the log file, at most PATH_MAX - 1 bytes, else ZTCInvalidEx. Takes effect with openLog.
void setLogFilePath(const char* apPath);
/// The name that setLogFilePath was given last; "" before. Main thread.
const char* getLogFilePath();

// The life of the log. Main thread only, unless said otherwise.

/// Before openLog: a file that reaches so many MiB becomes FILE.1, in place of the one before, and a new one
/// is begun. 0: never.
void setLogLimit(unsigned int aMebibytes);

/// Starts the writer thread, with every signal blocked, and has it open (appending, making it with mode 0640,
/// following no symbolic link) the file that setLogFilePath named. What was logged so far comes first in it.
/// Waits a second at most. False: the file's disk stands still; it is opened as soon as it moves. Throws
/// ZTCOsException when the file cannot be opened, or the thread not be started. The thread does not survive a
/// fork: the child calls this again.
bool openLog();

/// Has what is pending written, then the file's name opened anew; does not wait for that. The old file stays
/// in use, and an error is logged, when it fails. Any thread.
void reopenLog();

/// What has been logged, and what will be until openLog, is shown nowhere: for help and version.
void discardLog();

/// While set, records of ZTLL_Highest and ZTLL_Error that go to the file are shown on standard error too, if
/// that takes them at once.
void setLogEcho(bool aOn);

/// Waits, a second at most, until everything that was logged before the call is in the file. False: it is
/// not. Any thread.
bool flushLog();

namespace ztlog {

/// Makes room for a record of so many bytes in the calling thread's ring and reads the clock. What it returns
/// is to be filled in, and then published, by the same thread. Null: there is no room, the record is lost.
ZTCLogRecord* begin(std::size_t aSize, unsigned int aLevel);
void publish(unsigned int aLevel);

template <class... Arguments>
std::uint64_t putArguments(const Site& acrSite, const Arguments&... acrArguments) {
    ZTCLogRecord* const lpRecord = begin(ZTCLogRecord::sizeWith(acrArguments...), acrSite.mLevel);
    if (lpRecord == nullptr) [[unlikely]] {
        return now();
    }
    const std::uint64_t lStamp = lpRecord->mStamp;
    lpRecord->fill(acrSite, acrArguments...);
    publish(acrSite.mLevel);
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

/// Before the process ends: has what is pending written (to standard error when no file was opened), but
/// waits a second at most, and for nobody who still logs. The writer thread ends.
void finish();

}  // namespace ztlog

/// Writes one record when the level's bit is set in the log code. The format is a printf literal, checked
/// against the arguments by the compiler (integers, pointers, NUL-terminated text; no floating point). Tag,
/// function, file and format must live as long as the process; the arguments are copied. Never throws;
/// allocates nothing. Any thread. Text beyond 4 KiB an argument or 16 KiB a record ends
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
}

/// One reading of the log code: for the path of an event, which would read it again and again.
class ZTCLogMask {
  public:
    ZTCLogMask() : mCode(ztlog::gCode.load(std::memory_order_relaxed)) {}

    bool has(const ZTCLogLevel& acrLevel) const { return (mCode & acrLevel.mBit) != 0; }

  private:
    unsigned int mCode;
};

/// Whether records of the level are written: for arguments that cost something to make.
inline bool isLogged(const ZTCLogLevel& acrLevel) {
    return ZTCLogMask().has(acrLevel);
}

/// The same with the line and function of the call, for records whose line is not stated.
template <class... Arguments>
void Log(const ZTCLogLevel& acrLevel, const char* apFile,
         ZTCLogFormat<std::type_identity_t<Arguments>...> aFormat, Arguments... aArguments) {
    PrintLogMessageWithTimeStamp<Arguments...>(acrLevel.mBit, acrLevel.mpTag, aFormat.mLine,
                                               aFormat.mpFunction, apFile, aFormat, aArguments...);
}

/// The same by another function than the call's: for a part of that function's work.
template <class... Arguments>
void LogBy(const char* apFunction, const ZTCLogLevel& acrLevel, const char* apFile,
           ZTCLogFormat<std::type_identity_t<Arguments>...> aFormat, Arguments... aArguments) {
    PrintLogMessageWithTimeStamp<Arguments...>(acrLevel.mBit, acrLevel.mpTag, aFormat.mLine, apFunction,
                                               apFile, aFormat, aArguments...);
}

/// Writes one record by another function and line than the call's (the format's), and returns its time in
/// nanoseconds since 1970. One reading of the clock serves the caller and the log: when the level is masked,
/// or the format is none, it is only read.
template <class... Arguments>
std::uint64_t LogAndTime(ZTCLogMask aMask, const ZTCLogLevel& acrLevel, const char* apFunction,
                         const char* apFile,
                         const ZTCLogFormat<std::type_identity_t<Arguments>...>& acrFormat,
                         Arguments... aArguments) {
    if (acrFormat.mpText == nullptr || !aMask.has(acrLevel)) {
        return ztlog::now();
    }
    return ztlog::put(acrLevel.mBit, acrLevel.mpTag, acrFormat.mLine, apFunction, apFile, acrFormat.mpText,
                      aArguments...);
}

/// Traces a function: "Entered" when made, "Left" when it goes.
class ZTCTraceScope {
  public:
    explicit ZTCTraceScope(const char* apFile, unsigned int aLine = __builtin_LINE(),
                           const char* apFunction = __builtin_FUNCTION())
        : ZTCTraceScope(ZTCLogMask(), apFile, aLine, aLine, apFunction) {}
    /// Where the log code has been read.
    explicit ZTCTraceScope(ZTCLogMask aMask, const char* apFile, unsigned int aLine = __builtin_LINE(),
                           const char* apFunction = __builtin_FUNCTION())
        : ZTCTraceScope(aMask, apFile, aLine, aLine, apFunction) {}
    /// For functions whose two lines are stated.
    ZTCTraceScope(const char* apFile, unsigned int aEntered, unsigned int aLeft,
                  const char* apFunction = __builtin_FUNCTION())
        : ZTCTraceScope(ZTCLogMask(), apFile, aEntered, aLeft, apFunction) {}
    ~ZTCTraceScope() {
        if (mIsTraced) [[unlikely]] {
            trace(mLeft, "Left");
        }
    }
    ZTCTraceScope(const ZTCTraceScope&) = delete;
    ZTCTraceScope& operator=(const ZTCTraceScope&) = delete;

  private:
    ZTCTraceScope(ZTCLogMask aMask, const char* apFile, unsigned int aEntered, unsigned int aLeft,
                  const char* apFunction)
        : mpFile(apFile), mpFunction(apFunction), mLeft(aLeft), mIsTraced(aMask.has(ZTLL_Trace)) {
        if (mIsTraced) [[unlikely]] {
            trace(aEntered, "Entered");
        }
    }

    void trace(unsigned int aLine, const char* apText) const {
        PrintLogMessageWithTimeStamp(ZTLL_Trace.mBit, ZTLL_Trace.mpTag, aLine, mpFunction, mpFile, "%s",
                                     apText);
    }

    const char* mpFile;
    const char* mpFunction;
    unsigned int mLeft;
    bool mIsTraced;
};
