// One running instance: the pid file and the lock on it.
//
// An instance runs when a process holds the lock of the pid file. The number in the file is for people and
// for the sensor; stale, garbled or recycled, it proves nothing.
#pragma once

#include <sys/types.h>

#include "Descriptor.h"
#include "Log.h"
#include "ZTString.h"

inline constexpr char ZTProcessInstanceManagerFile[] = "backend/system/include/ProcessInstanceManager";

/// Main thread; getProcStatus: any thread.
class ZTCProcessInstanceManager {
  public:
    explicit ZTCProcessInstanceManager(const ZTCString& acrPidFile) : mPidFile(acrPidFile) {
        const ZTCTraceScope lTrace(ZTProcessInstanceManagerFile, 91, 93);
    }
    virtual ~ZTCProcessInstanceManager();
    ZTCProcessInstanceManager(const ZTCProcessInstanceManager&) = delete;
    ZTCProcessInstanceManager& operator=(const ZTCProcessInstanceManager&) = delete;

    /// Whether another process is the running instance. Throws ZTCOsException when the pid file's place holds
    /// something that is not ours, which is left alone.
    virtual bool isAnInstanceRunning();

    /// Makes this process the running instance until it ends: puts a new file, mode 0600, with the lock and
    /// the number in the old one's place. Throws ZTCExitConditionEx, naming the process, when another one is;
    /// ZTCOsException as above; ZTCTimeOutEx when another start stands still.
    virtual void markAsRunning();

    /// Sends the running instance SIGTERM and waits for its end, at most 10 seconds. Nobody is asked but a
    /// process of our user that holds the lock. Throws ZTCExitConditionEx when none is running, ZTCTimeOutEx,
    /// ZTCOsException.
    virtual void killRunningInstance();

    /// Removes the pid file, if this process made itself the running instance, and gives the lock up.
    virtual void exitInstanceManagement();

    /// Returns when the process that the pid file names exists. Throws ZTCClibGetProcStatusFailedEx when the
    /// file cannot be believed (OsCheckOurFile), cannot be read or names none, or the process is gone (also
    /// when only its status is left).
    virtual void getProcStatus(ZTCString aPidFile);

  private:
    enum ZTEInstanceState : unsigned int { ZTIS_NotRunning, ZTIS_Running };

    ZTCString mPidFile;
    ZTCDescriptor mPidFd;
    unsigned int mState = ZTIS_NotRunning;
};
