// Runs the command of --on-incident.
#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <thread>

#include "SensorFiles.h"

class ZTCSnFigures;
class ZTCServiceLog;

/// One at a time, in a thread of its own, so that nobody else waits for it. It is given a text on its
/// standard input; what it writes is thrown away. After ten seconds it is killed, with all that is left of
/// its process group. It may do as little as vrx-sn, and nothing to the network. Any thread.
class ZTCIncidentCommand {
  public:
    static constexpr std::size_t MostWaiting = 64;  ///< of more the last ones are dropped, counted and told

    ZTCIncidentCommand(ZTCSnFigures& arFigures, ZTCServiceLog& arLog,
                       std::chrono::milliseconds aTime = std::chrono::seconds(10));
    ~ZTCIncidentCommand();
    ZTCIncidentCommand(const ZTCIncidentCommand&) = delete;
    ZTCIncidentCommand& operator=(const ZTCIncidentCommand&) = delete;

    /// A program by its whole path, and its arguments, with blanks between; empty: there is none.
    void setCommand(const std::string& acrCommand);
    /// With that text, soon. Throws std::bad_alloc, and std::system_error where there can be no thread.
    void run(std::string aText);
    /// The one that runs has this time left; what waits is dropped. False: it cannot be killed, and the
    /// process is to be left at once.
    bool finish(std::chrono::milliseconds aTime);
    /// How many wait, with the one that runs.
    std::size_t countWaiting() const;

  private:
    using Clock = std::chrono::steady_clock;

    void work();
    void execute(const std::string& acrCommand, const std::string& acrText);
    int spawn(const std::string& acrCommand, const std::string& acrText, int& arProcess) const;
    bool waitFor(int aProcess, Clock::time_point aUntil, bool aHeedsEnd);
    bool isStuck();

    ZTCSnFigures& mrFigures;
    ZTCServiceLog& mrLog;
    const std::chrono::milliseconds mTime;
    ZTCSensorDescriptor mEnded;  // an event: the one that runs has less time
    int mStuck = 0;              // the thread's own: one that was killed and has not died; 0: there is none

    mutable std::mutex mLock;  // of what follows
    std::condition_variable mChanged;
    std::string mCommand;
    std::deque<std::string> mWaiting;
    bool mIsEnding = false;
    Clock::time_point mEnd;  // of all
    bool mHasEnded = true;
    std::thread mThread;
};
