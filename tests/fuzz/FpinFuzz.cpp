// Whatever a fabric sends as an FPIN: what is read lies within the bytes, and no descriptor is told twice.
#include <cstdlib>
#include <vector>

#include "Fpin.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* apInput, std::size_t aSize) {
    const std::vector<unsigned char> lExact(apInput, apInput + aSize);
    std::size_t lTold = 0;
    readFpin(lExact, [&](const ZTSFcFpin&) { ++lTold; });
    if (lTold > aSize / 8) {
        abort();
    }
    return 0;
}
