// Whatever the kernel's socket brings: what is read lies within the bytes, and no piece is counted twice.
#include <cstdlib>
#include <vector>

#include "FcMessages.h"
#include "TransportMessage.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* apInput, std::size_t aSize) {
    const std::vector<unsigned char> lExact(apInput, apInput + aSize);
    std::size_t lPieces = 0;
    lPieces += readTransportMessages(lExact.data(), aSize, [&](const ZTSFcMessage&) { ++lPieces; });
    std::vector<ZTSFpin> lFpins;
    ZTCFcMessages().take(lExact, {}, 0, lFpins);
    if (lPieces > aSize / 16 + 1 || lFpins.size() > aSize / 8) {
        abort();
    }
    return 0;
}
