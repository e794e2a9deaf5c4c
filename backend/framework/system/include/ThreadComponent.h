// The threads of a system: what each runs, what it waits for, and how it is told to end.
//
// The system creates, starts and joins the threads (System.h). A procedure gets a block of two pointers, the
// component (as ZTCThreadComponent*) and the system (as ZTCSystemInterface*), in that order.
#pragma once

#include <pthread.h>

#include <atomic>
#include <vector>

#include "Event.h"
#include "SystemInterface.h"

/// isSetForExit, setForExit and finish: any thread. The rest belongs to the system.
class ZTCThreadComponent {
  public:
    using Procedure = void* (*)(void*);

    ZTCThreadComponent(Procedure aProcedure, const ZTCString& acrName, ZTCSystemInterface* apSystem);
    virtual ~ZTCThreadComponent();
    ZTCThreadComponent(const ZTCThreadComponent&) = delete;
    ZTCThreadComponent& operator=(const ZTCThreadComponent&) = delete;

    /// Whether the thread is to leave its loop.
    bool isSetForExit() const { return mIsSetForExit.load(); }
    void setForExit() { mIsSetForExit.store(true); }

    /// Marks the thread for exit and wakes it where it waits. For makeThreadsToExit, which marks the system
    /// before: without that mark, a thread that is just about to wait would not see it.
    virtual void finish();

    const ZTCString& getName() const { return mName; }

    /// Makes the thread, which waits to be started; arEnded is set when it ends. Throws ZTCOsException.
    void create(ZTCEvent& arEnded);
    /// Lets the thread run its procedure; one that was told to finish before ends at once.
    void start();
    /// Whether the thread has been let run.
    bool isStarted() const { return mGate.load() == Gate::Open; }
    /// Whether the thread has ended, or was never made.
    bool hasEnded() const { return !mIsCreated || mHasEnded.load(); }
    /// Whether an exception ended the thread's procedure.
    bool hasFailed() const { return mHasFailed.load(); }
    /// Waits for the thread's end, if it was made.
    void join();

  protected:
    ZTCSystemInterface* getSystem() const { return mpSystem; }

  private:
    enum class Gate : unsigned int { Closed, Open, Cancelled };  // what the thread waits at before it runs

    static void* threadMain(void* apComponent);
    void finishGate();
    void run();

    const Procedure mProcedure;
    const ZTCString mName;
    ZTCSystemInterface* const mpSystem;
    ZTCEvent* mpEnded = nullptr;
    bool mIsCreated = false;
    pthread_t mThread{};
    void* mBlock[2]{};
    std::atomic<Gate> mGate{Gate::Closed};
    std::atomic<bool> mIsSetForExit{false};
    std::atomic<bool> mHasEnded{false};
    std::atomic<bool> mHasFailed{false};
};

/// A thread that waits on conditionals of the system.
class ZTCConditionWaitThreadComponent : public virtual ZTCThreadComponent {
  public:
    ZTCConditionWaitThreadComponent(Procedure aProcedure, const ZTCString& acrName,
                                    ZTCSystemInterface* apSystem, const unsigned int* apConditionalIds,
                                    unsigned int aCount);
    void finish() override;

  private:
    const std::vector<unsigned int> mConditionalIds;
};

/// A thread with a period.
class ZTCTimedWaitThreadComponent : public virtual ZTCThreadComponent {
  public:
    ZTCTimedWaitThreadComponent(Procedure aProcedure, const ZTCString& acrName, ZTCSystemInterface* apSystem,
                                unsigned int aTimeout)
        : ZTCThreadComponent(aProcedure, acrName, apSystem), mTimeout(aTimeout) {}

    /// In seconds.
    unsigned int getTimeout() const { return mTimeout; }

  private:
    const unsigned int mTimeout;
};

/// Both.
class ZTCConditionTimedWaitThreadComponent : public virtual ZTCConditionWaitThreadComponent,
                                             public virtual ZTCTimedWaitThreadComponent {
  public:
    ZTCConditionTimedWaitThreadComponent(Procedure aProcedure, const ZTCString& acrName,
                                         ZTCSystemInterface* apSystem, const unsigned int* apConditionalIds,
                                         unsigned int aCount, unsigned int aTimeout)
        : ZTCThreadComponent(aProcedure, acrName, apSystem),
          ZTCConditionWaitThreadComponent(aProcedure, acrName, apSystem, apConditionalIds, aCount),
          ZTCTimedWaitThreadComponent(aProcedure, acrName, apSystem, aTimeout) {}

    void finish() override { ZTCConditionWaitThreadComponent::finish(); }
};
