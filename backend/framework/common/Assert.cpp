#include "Assert.h"

#include <unistd.h>

#include <atomic>
#include <cstdlib>

#include "Log.h"

void failAssertion(const char* apText, unsigned int aLine, const char* apFunction,
                   const char* apFile) noexcept {
    static constinit std::atomic<bool> sFailed{false};
    if (sFailed.exchange(true)) {
        for (;;) {
            pause();
        }
    }
    if ((ztlog::gCode.load(std::memory_order_relaxed) & ZTLL_Highest.mBit) != 0) {
        const ztlog::Argument lText = ztlog::argument(apText);
        ztlog::publish(
            {ZTLL_Highest.mpTag, apFunction, apFile, "Assertion [ %s ] failed\n", ZTLL_Highest.mBit, aLine},
            &lText, 1);
    }
    ztlog::finish();
    quick_exit(1);
}
