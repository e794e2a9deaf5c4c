// vrx-scope, run as people run it.
#pragma once

#include "SimClient.h"

/// A run of the program in an agent's directory. Its times are UTC, and its output is no terminal.
class ZTCScopeRun {
  public:
    ZTCScopeRun(const std::string& acrDirectory, const ZTCTestChild::Arguments& acrArguments)
        : mChild(commandOf(acrArguments), {"ZT_VRX_SENSOR_DIR=" + acrDirectory, "TZ=UTC", "NO_COLOR"}) {}

    int waitForEnd() { return mChild.waitForEnd(); }
    std::string getOut() const { return mChild.getOut(); }
    std::string getErr() const { return mChild.getErr(); }
    pid_t getProcess() const { return mChild.getProcess(); }
    void interrupt() const { kill(mChild.getProcess(), SIGINT); }

  private:
    static ZTCTestChild::Arguments commandOf(ZTCTestChild::Arguments aArguments) {
        aArguments.insert(aArguments.begin(), ZT_VRX_SCOPE);
        return aArguments;
    }

    ZTCTestChild mChild;
};

struct ZTSScopeResult {
    int mStatus;
    std::string mOut;
    std::string mErr;
};

inline ZTSScopeResult runScope(const std::string& acrDirectory, const ZTCTestChild::Arguments& acrArguments) {
    ZTCScopeRun lRun(acrDirectory, acrArguments);
    const int lStatus = lRun.waitForEnd();
    return {lStatus, lRun.getOut(), lRun.getErr()};
}

/// A run that must do what it was asked for: its output.
inline std::string askScope(const std::string& acrDirectory, const ZTCTestChild::Arguments& acrArguments) {
    const ZTSScopeResult lResult = runScope(acrDirectory, acrArguments);
    EXPECT_EQ(lResult.mStatus, 0) << lResult.mErr;
    EXPECT_EQ(lResult.mErr, "");
    return lResult.mOut;
}
