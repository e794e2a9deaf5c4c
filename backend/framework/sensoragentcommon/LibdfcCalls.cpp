#include "LibdfcCalls.h"

#include <unistd.h>

#include "LogRecord.h"

namespace {

constinit std::atomic<bool> sKeepsThreads{false};

}  // namespace

ZTCLibdfcCall::ZTCLibdfcCall(ZTELibdfcFunction aFunction) : mrSince(LibdfcSince(aFunction)) {
    mrSince.store(ztlog::now());
}

ZTCLibdfcCall::~ZTCLibdfcCall() {
    mrSince.store(0);
    // Who keeps threads says so and then looks who is inside: either it does not see this one, or this one
    // sees it.
    while (sKeepsThreads.load()) {
        pause();
    }
}

ZTSForeignCall LibdfcLongestCall() {
    ZTSForeignCall lLongest;
    for (unsigned char lAt = 0; lAt < ZTELF_Count; ++lAt) {
        const std::uint64_t lSince = LibdfcSince(static_cast<ZTELibdfcFunction>(lAt)).load();
        if (lSince != 0 && (lLongest.mpFunction == nullptr || lSince < lLongest.mSince)) {
            lLongest = {ZTLibdfcFunctions[lAt], lSince};
        }
    }
    return lLongest;
}

void LibdfcKeepThreads() {
    sKeepsThreads.store(true);
}
