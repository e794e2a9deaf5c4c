// The sensor's work with the agent: waits for one, starts its collection, fetches in time, keeps the books.
#pragma once

#include <atomic>
#include <functional>
#include <memory>

#include "AgentBook.h"
#include "AgentSight.h"
#include "AgentTargets.h"
#include "SensorClient.h"
#include "SensorPidFile.h"
#include "ServiceLog.h"
#include "SnOptions.h"

class ZTCSnBuffer;
class ZTCHostLook;
class ZTCSnFigures;

/// Runs in one thread, which never waits for the store: a moment at most, so that a kill loses one answer.
class ZTCAgentLoop {
  public:
    /// aTurn is called at each turn, at least once a second unless the agent keeps an answer back (ten
    /// seconds at most): it feeds the watchdog.
    using Turn = std::function<void()>;

    ZTCAgentLoop(const ZTSSnOptions& acrOptions, ZTCSnBuffer& arBuffer, ZTCHostLook& arHost,
                 ZTCSnFigures& arFigures, ZTCServiceLog& arLog, Turn aTurn);
    ZTCAgentLoop(const ZTCAgentLoop&) = delete;
    ZTCAgentLoop& operator=(const ZTCAgentLoop&) = delete;

    /// Until it is told to end: then it fetches once more. Throws ZTCPipesTakenError when another client has
    /// the agent as this one starts, and what a directory that can never be used throws.
    void run();
    /// Any thread, and from a signal's handler.
    void end() { mEnd.end(); }
    /// Any thread.
    void setOptions(const ZTSSnOptions& acrOptions);
    /// What the store had when it was opened: only then it can be said what was lost before. Any thread,
    /// once.
    void setStart(const ZTSStoreStart& acrStart);

  private:
    using Clock = ZTCWaitEnd::Clock;

    void turn();
    void tryTurn();
    void claim();
    void leaveDirectory();
    void beHere();

    bool findAgent();
    void attach(std::unique_ptr<ZTCAgentSight> apSight);
    void detach();
    void greet();
    void startCollection();
    void keepCollecting();
    void registerTargets();

    void fetch();
    void take(const ZTSensorBytes& acrMessage);
    void waitForStore();
    void noteLostAnswers();
    void lastFetch();
    void settle();

    void look();
    void seeLibrary(Clock::time_point aNow);
    void waitForWork();
    void meet(ZTCServiceTrouble& arTrouble, const std::exception& acrError, std::chrono::milliseconds aPause);

    ZTCSnBuffer& mrBuffer;
    ZTCHostLook& mrHost;
    ZTCSnFigures& mrFigures;
    ZTCServiceLog& mrLog;
    const Turn mTurn;
    const std::string mDirectory;
    const std::string mStore;  ///< its name
    ZTCWaitEnd mEnd;

    std::atomic<std::chrono::milliseconds> mEvery;
    std::atomic<std::uint32_t> mCeiling;

    ZTCAgentBook mBook;

    // The loop's thread.
    std::unique_ptr<ZTCSensorClient> mpClient;
    std::unique_ptr<ZTCSensorPidFile> mpPidFile;
    std::unique_ptr<ZTCAgentSight> mpSight;
    const ZTSBookFigures* mpSeen = nullptr;  ///< of the sight's last look
    bool mHasBegun = false;                  ///< the first turn is over
    bool mIsBeginTold = false;
    bool mIsGreeted = false;  ///< the agent has answered the first words
    bool mIsMuch = false;     ///< the last answer was long: the next is asked for at once
    unsigned int mLooksWithoutFigures = 0;
    unsigned int mLostAnswers = 0;
    Clock::time_point mNextFetch;
    Clock::time_point mNextTouch;
    Clock::time_point mNextStart;  ///< of a collection
    Clock::time_point mNextSight;  ///< of what the library tells of
    Clock::time_point mPausedTo;
    bool mHasScsiAnswers = false;  ///< the agent has ever told of one
    ZTCAgentTargets mTargets;
    ZTCServiceTrouble mDirectoryTrouble;
    ZTCServiceTrouble mNoAgent;
    ZTCServiceTrouble mNoAnswer;
    ZTCServiceTrouble mBadAnswer;
};
