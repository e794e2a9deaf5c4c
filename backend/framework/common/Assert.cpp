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
    if (isLogged(ZTLL_Highest)) {
        ztlog::put(ZTLL_Highest.mBit, ZTLL_Highest.mpTag, aLine, apFunction, apFile,
                   "Assertion [ %s ] failed\n", apText);
    }
    leaveProcess(1);
}

void leaveProcess(int aStatus) noexcept {
    ztlog::finish();
    quick_exit(aStatus);
}
