// Looks at the host's ports and their counters: drivers answer, and may take their time.
#pragma once

#include "HostBook.h"
#include "HostPorts.h"
#include "LookThread.h"
#include "PortCounters.h"

/// A look each second. The counters come behind the ports, for they are the slower ones.
class ZTCPortsLook : public ZTCLooker {
  public:
    ZTCPortsLook(const std::string& acrRoot, std::shared_ptr<ZTCHostBook> apBook);

    Clock::time_point look() override;
    void tellSlow(unsigned int aSeconds) override;
    void tellFailed(const char* apWhy) override;
    void tellHangs(unsigned int aSeconds) override;

  private:
    void noteLeftOut();
    void lookAtCounters(Clock::time_point aNow);

    const std::shared_ptr<ZTCHostBook> mpBook;
    ZTCHostPorts mPorts;
    ZTCPortCounters mCounters;
    ZTCMeasures mMeasures;
    bool mIsUntold = true;
    std::size_t mLeftOut = 0;
    Clock::time_point mSightDue;
};
