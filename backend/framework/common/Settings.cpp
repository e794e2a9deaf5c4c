#include "Settings.h"

#include <atomic>

namespace {
constinit std::atomic<unsigned int> sHbTimeout{ZTHbTimeoutDefault};
}

void setHbTimeout(unsigned int aSeconds) {
    sHbTimeout.store(aSeconds, std::memory_order_relaxed);
}

void getHbTimeout(unsigned int& arSeconds) {
    arSeconds = sHbTimeout.load(std::memory_order_relaxed);
}
