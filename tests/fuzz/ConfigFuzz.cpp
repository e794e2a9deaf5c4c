// Whatever a configuration holds: it is taken within its limits, or refused in words.
#include <cstdlib>

#include "SnOptions.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* apInput, std::size_t aSize) {
    const std::string lText(apInput, apInput + aSize);
    try {
        const ZTSSnOptions lOptions = parseSnOptions({"--dir", "/run/vrx-sca"}, lText);
        if (lOptions.mEvery.count() < 50 || lOptions.mFold.count() < 0 || lOptions.mStore.empty() ||
            lOptions.mKeepDays == 0 || lOptions.mKeepBytes < (1 << 20) || lOptions.mHostName.empty()) {
            abort();
        }
    } catch (const ZTCServiceUsage& lrError) {
        if (lrError.what()[0] == '\0') {
            abort();
        }
    }
    return 0;
}
