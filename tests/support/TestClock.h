// A clock that can be set, for programs that are started with its environment.
#pragma once

#include "TestSupport.h"

class ZTCTestClock {
  public:
    ZTCTestClock() { set(std::chrono::seconds(0)); }

    /// So far from the host's.
    void set(std::chrono::seconds aStep) const {
        const std::int64_t lStep = aStep.count();
        const ZTCDescriptor lFile(open((mOwn / "clock").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
        EXPECT_EQ(pwrite(lFile.get(), &lStep, sizeof lStep, 0), static_cast<ssize_t>(sizeof lStep));
    }
    std::vector<std::string> getEnvironment() const {
        return {"LD_PRELOAD=" ZT_STEPPED_CLOCK, "ZT_TEST_CLOCK=" + (mOwn / "clock")};
    }

  private:
    const ZTCTestDirectory mOwn;
};
