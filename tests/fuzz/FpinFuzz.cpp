// Whatever a fabric sends as an FPIN: what is read lies within the bytes, and no descriptor is told twice.
#include <cstdlib>
#include <vector>

#include "FpinDescriptor.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* apInput, std::size_t aSize) {
    const std::vector<unsigned char> lExact(apInput, apInput + aSize);
    std::size_t lTold = 0;
    std::size_t lPorts = 0;
    readFpin(lExact, [&](const ZTSFpinDescriptor& acrOne) {
        ++lTold;
        for (std::size_t lAt = 0; lAt < acrOne.countPorts(); ++lAt) {
            lPorts += acrOne.getPort(lAt) != 0 ? 1 : 0;
        }
    });
    if (lTold + lPorts > aSize / 8) {
        abort();
    }
    return 0;
}
