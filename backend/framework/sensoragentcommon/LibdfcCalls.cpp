#include "LibdfcCalls.h"

#include <chrono>

#include "LogRecord.h"

namespace {

using Clock = std::chrono::steady_clock;

// When each call began, by a clock that nobody sets; 0: nobody is inside.
constinit std::atomic<Clock::rep> sBegun[ZTELF_Close]{};
constinit std::atomic<bool> sKeepsThreads{false};

}  // namespace

ZTCLibdfcCall::ZTCLibdfcCall(ZTELibdfcFunction aFunction) : mFunction(aFunction) {
    LibdfcSince(mFunction).store(ztlog::now());
    if (mFunction != ZTELF_Close) {
        sBegun[mFunction].store(Clock::now().time_since_epoch().count());
    }
}

ZTCLibdfcCall::~ZTCLibdfcCall() {
    LibdfcSince(mFunction).store(0);
    if (mFunction != ZTELF_Close) {
        sBegun[mFunction].store(0);
    }
    // Who keeps threads says so and then looks who is inside: either it does not see this one, or this one
    // sees it.
    sKeepsThreads.wait(true);
}

ZTSForeignCall LibdfcLongestCall() {
    ZTSForeignCall lLongest;
    for (unsigned char lAt = 0; lAt < ZTELF_Close; ++lAt) {
        const Clock::time_point lBegun{Clock::duration(sBegun[lAt].load())};
        if (lBegun != Clock::time_point() && (lLongest.mpFunction == nullptr || lBegun < lLongest.mBegun)) {
            lLongest = {ZTLibdfcFunctions[lAt], lBegun};
        }
    }
    return lLongest;
}

void LibdfcKeepThreads(bool aOn) {
    sKeepsThreads.store(aOn);
    sKeepsThreads.notify_all();
}
