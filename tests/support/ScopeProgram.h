// vrx-scope, run as people run it.
#pragma once

#include "SimClient.h"

/// A run of the program in an agent's directory. Its times are UTC, and its output is no terminal.
class ZTCScopeRun : public ZTCTestChild {
  public:
    ZTCScopeRun(const std::string& acrDirectory, const Arguments& acrArguments)
        : ZTCTestChild(commandOf(acrArguments), {"ZT_VRX_SENSOR_DIR=" + acrDirectory, "TZ=UTC", "NO_COLOR"}) {
    }

    void interrupt() const { kill(getProcess(), SIGINT); }

  private:
    static Arguments commandOf(Arguments aArguments) {
        aArguments.insert(aArguments.begin(), ZT_VRX_SCOPE);
        return aArguments;
    }
};

using ZTSScopeResult = ZTSTestEnd;

inline ZTSScopeResult runScope(const std::string& acrDirectory, const ZTCTestChild::Arguments& acrArguments) {
    return runChild<ZTCScopeRun>(acrDirectory, acrArguments);
}

/// A run that must do what it was asked for: its output.
inline std::string askScope(const std::string& acrDirectory, const ZTCTestChild::Arguments& acrArguments) {
    const ZTSScopeResult lResult = runScope(acrDirectory, acrArguments);
    EXPECT_EQ(lResult.mStatus, 0) << lResult.mErr;
    EXPECT_EQ(lResult.mErr, "");
    return lResult.mOut;
}

/// A command that reads a store.
inline ZTCTestChild::Arguments commandOnStore(const std::string& acrStore,
                                              const ZTCTestChild::Arguments& acrArguments) {
    ZTCTestChild::Arguments lArguments{"--utc", acrArguments.at(0), "--store", acrStore};
    lArguments.insert(lArguments.end(), acrArguments.begin() + 1, acrArguments.end());
    return lArguments;
}

/// An agent that collects, and nobody at its pipes.
struct ZTSScopeStand : ZTSTestStand {
    explicit ZTSScopeStand(const ZTCTestAgent::Options& acrOptions = {},
                           const ZTCTestAgent::Options& acrEnvironment = {})
        : ZTSTestStand(acrOptions, "", "/tmp", acrEnvironment) {
        { const ZTCTestSensor lGone(std::move(mSensor)); }
        askScope(mrDirectory, {"start"});
    }
    const std::string& mrDirectory = mDirectory.getPath();
};
