// A call into code that is not ours, and that may not return.
#pragma once

#include <chrono>

struct ZTSForeignCall {
    const char* mpFunction = nullptr;  ///< null: nobody is inside
    std::chrono::steady_clock::time_point mBegun;
};
