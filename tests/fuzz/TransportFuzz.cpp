// Whatever the kernel's socket brings: what is read lies within the bytes, and no piece is counted twice.
#include <cstdlib>
#include <vector>

#include "FpinDescriptor.h"
#include "TransportMessage.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* apInput, std::size_t aSize) {
    const std::vector<unsigned char> lExact(apInput, apInput + aSize);
    std::size_t lPieces = 0;
    lPieces += readTransportMessages(lExact.data(), aSize, [&](const ZTSFcMessage& acrMessage) {
        ++lPieces;
        readFpin(acrMessage.mData, [](const ZTSFpinDescriptor&) {});
    });
    if (lPieces > aSize / 16 + 1) {
        abort();
    }
    return 0;
}
