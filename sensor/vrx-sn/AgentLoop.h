// The sensor's work with the agent: waits for one, starts its collection, fetches in time, keeps the books.
#pragma once

#include <functional>
#include <memory>
#include <optional>

#include "SnOptions.h"
#include "StoreBatch.h"

class ZTCSnBuffer;
class ZTCHostLook;
class ZTCSnFigures;
class ZTCSnLog;

/// Runs in one thread, which never waits for the store: a moment at most, so that a kill loses one answer.
class ZTCAgentLoop {
  public:
    /// aTurn is called at each turn, at least once a second unless the agent keeps an answer back (ten
    /// seconds at most): it feeds the watchdog.
    using Turn = std::function<void()>;

    ZTCAgentLoop(const ZTSSnOptions& acrOptions, ZTCSnBuffer& arBuffer, const ZTCHostLook& acrHost,
                 ZTCSnFigures& arFigures, ZTCSnLog& arLog, Turn aTurn);
    ~ZTCAgentLoop();
    ZTCAgentLoop(const ZTCAgentLoop&) = delete;
    ZTCAgentLoop& operator=(const ZTCAgentLoop&) = delete;

    /// Until it is told to end: then it fetches once more. Throws ZTCPipesTakenError when another client has
    /// the agent as this one starts, and what a directory that can never be used throws.
    void run();
    /// Any thread, and from a signal's handler.
    void end();
    /// Any thread.
    void setOptions(const ZTSSnOptions& acrOptions);
    /// What the store had when it was opened: only then it can be said what was lost before. Any thread,
    /// once.
    void setStart(const ZTSStoreStart& acrStart);

  private:
    class Impl;
    std::unique_ptr<Impl> mpImpl;
};
