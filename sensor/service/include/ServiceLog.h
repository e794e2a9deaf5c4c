// What a program that runs for long has to say: a line each, to the journal, or to standard error where there
// is none.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>

/// As syslog numbers them.
enum ZTEServiceLevel : unsigned char { ZTSL_Error = 3, ZTSL_Warning = 4, ZTSL_Notice = 5, ZTSL_Info = 6 };

/// Any thread. It never waits: a line that cannot be written at once is dropped, and counted. What of a line
/// is not printable is made so.
class ZTCServiceLog {
  public:
    /// apProgram: its name, which stands before its lines where they are not the journal's.
    explicit ZTCServiceLog(const char* apProgram);

    /// A printf literal is the message's name: the program's page in docs/ has a row for each from
    /// ZTSL_Notice up.
    __attribute__((format(printf, 3, 4))) void note(ZTEServiceLevel aLevel, const char* apFormat, ...);
    std::uint64_t getLost() const { return mLost; }
    bool isJournal() const { return mIsJournal; }

  private:
    const char* const mpProgram;
    const bool mIsJournal;
    std::atomic<std::uint64_t> mLost{0};
};

/// A trouble that lasts: a line when it begins, one each half minute with how often it was met, and one when
/// it is over. One thread at a time.
class ZTCServiceTrouble {
  public:
    using Clock = std::chrono::steady_clock;

    /// apWhat: the subject of its lines, which the page has a row for: "the history is not written".
    ZTCServiceTrouble(ZTCServiceLog& arLog, const char* apWhat, ZTEServiceLevel aLevel = ZTSL_Warning)
        : mrLog(arLog), mpWhat(apWhat), mLevel(aLevel) {}

    void met(const std::string& acrWhy, Clock::time_point aNow = Clock::now());
    /// The same, but it is not met once more: it goes on.
    void lasts(const std::string& acrWhy, Clock::time_point aNow = Clock::now());
    /// Does nothing when there was none.
    void over(Clock::time_point aNow = Clock::now());
    bool isThere() const { return mIsThere; }

  private:
    static constexpr std::chrono::seconds Again{30};
    unsigned long long secondsUntil(Clock::time_point aNow) const;

    ZTCServiceLog& mrLog;
    const char* const mpWhat;
    const ZTEServiceLevel mLevel;
    Clock::time_point mSince;
    Clock::time_point mTold;
    bool mIsThere = false;
    unsigned long long mTimes = 0;
};
