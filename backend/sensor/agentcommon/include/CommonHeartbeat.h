// The two sides of a heartbeat that is told by a file's modification time: touching one's own file, and
// watching the other's. Each object is used by one thread.
#pragma once

#include "Clib.h"
#include "Log.h"
#include "SafeFile.h"
#include "System.h"

inline constexpr char ZTCommonHeartbeatFile[] = "backend/sensor/agentcommon/include/CommonHeartbeat";

/// Touches a file.
class ZTCSetHeartbeat {
  public:
    explicit ZTCSetHeartbeat(const ZTCPointer<ZTCString>& acrFile) : mFile(acrFile) {}
    virtual ~ZTCSetHeartbeat() = default;

    /// Sets the file's modification time to now. Throws ZTCClibUtimeFailedEx.
    void SetHeartbeat() {
        const ZTCTraceScope lTrace(ZTCommonHeartbeatFile);
        Log(ZTLL_Trace, ZTCommonHeartbeatFile, "Setting the mod time of %s", mFile->get());
        ClibUtime(mFile->get());
    }

  private:
    ZTCPointer<ZTCString> mFile;
};

/// Watches a file, and the process that it names.
class ZTCCheckHeartbeat {
  public:
    ZTCCheckHeartbeat(const ZTCPointer<ZTCString>& acrFile, ZTCSystemInterface* apSystem)
        : mFile(acrFile), mpSystem(apSystem) {}
    virtual ~ZTCCheckHeartbeat() = default;

    /// Looks at the file's modification time. One look that finds it as it was, or finds no file that may be
    /// believed (OsCheckOurFile), is tolerated; from the second on, until the time changes, each throws
    /// ZTCHeartbeatFailedEx.
    void CheckStatus() {
        {
            const ZTCTraceScope lTrace(ZTCommonHeartbeatFile);
            struct stat lStatus {};
            try {
                ClibStat(mFile->get(), &lStatus);
                OsCheckOurFile(lStatus, mFile->get());
            } catch (const ZTCException&) {
                Log(ZTLL_Warning, ZTCommonHeartbeatFile, "Failed in stat on %s file", mFile->get());
                if (hasFailedTwice()) {
                    throwFailed();
                }
                return;
            }
            const auto lModTime = static_cast<unsigned int>(lStatus.st_mtime);
            if (!mIsSeen || lModTime != mLastModTime) {
                mUnchangedCount = mIsSeen ? 0 : mUnchangedCount;
                mLastModTime = lModTime;
                mIsSeen = true;
                return;
            }
            if (!hasFailedTwice()) {
                return;
            }
        }
        Log(ZTLL_Warning, ZTCommonHeartbeatFile, "Modfication time of the %s hasn't changed", mFile->get());
        throwFailed();
    }

    /// Returns when the process that the file names exists. Throws ZTCClibGetProcStatusFailedEx.
    void checkProcess() {
        auto* const lpSystem = dynamic_cast<ZTCSystem*>(mpSystem);
        ZT_ASSERT(0 != lpSystem, __LINE__, ZTCommonHeartbeatFile);
        lpSystem->getProcStatus(*mFile);
    }

  private:
    bool hasFailedTwice() { return ++mUnchangedCount > 1; }
    [[noreturn]] static void throwFailed() { throw ZTCHeartbeatFailedEx(""); }

    ZTCPointer<ZTCString> mFile;
    ZTCSystemInterface* mpSystem;
    unsigned int mLastModTime = 0;     ///< seconds since the epoch, as seen last
    unsigned int mUnchangedCount = 0;  ///< looks that failed since it was seen to change
    bool mIsSeen = false;
};
