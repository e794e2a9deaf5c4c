// A thread that looks lives on, whatever a look throws.
#include <stdexcept>

#include "LookThread.h"
#include "TestSupport.h"

namespace {

class Looker : public ZTCLooker {
  public:
    Clock::time_point look() override {
        switch (++mLooks) {
            case 2:
                throw std::bad_alloc();
            case 1:
            case 3:
                throw std::runtime_error("not a number");
            default:
                return Clock::now() + std::chrono::hours(1);
        }
    }
    void tellSlow(unsigned int) override {}
    void tellFailed(const char* apWhy) override { mTold += apWhy; }
    void tellHangs(unsigned int) override {}

    std::atomic<unsigned int> mLooks{0};
    std::string mTold;
};

TEST(LookThread, ALookThatFailsIsToldOnceAndDoneAgain) {
    const auto lpLooker = std::make_shared<Looker>();
    ZTCLookThread lThread("looks", lpLooker);
    EXPECT_TRUE(waitUntil([&] {
        lThread.wake();
        return lpLooker->mLooks > 4;
    }));
    lThread.end();
    lThread.waitForEnd(ZTCLooker::Clock::now() + std::chrono::minutes(1));
    EXPECT_EQ(lpLooker->mTold, "not a number");
}

}  // namespace
