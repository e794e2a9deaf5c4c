// A call into code that is not ours, and that may not return.
#pragma once

#include <cstdint>

struct ZTSForeignCall {
    const char* mpFunction = nullptr;  ///< null: nobody is inside
    std::uint64_t mSince = 0;          ///< nanoseconds since 1970
};
