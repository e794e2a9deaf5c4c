// What a vendor library delivers can be read as the agent reads it. The first byte says what it claims.
#include <vector>

#include "LibdfcCallbacks.h"
#include "Log.h"
volatile unsigned char gLast;
static void readRscn(std::uint32_t, const void* apData, std::uint32_t aLength) {
    const auto* const lpData = static_cast<const unsigned char*>(apData);
    const unsigned int lRead = aLength >= 8 ? (256U * lpData[2] + lpData[3]) / 4 * 4 : aLength;
    gLast = lRead == 0 ? gLast : lpData[lRead - 1];
}
static void readLink(std::uint32_t, const void* apData, std::uint32_t) {
    readRscn(0, static_cast<const char*>(apData) + ZT_DFC_LINK_CONTEXT - 1, 1);
}
static void readGeneric(auto, auto, auto, auto, auto, const ZT_event* apEvent) {
    readRscn(0, apEvent->descriptor->payload, apEvent->total_length - ZT_EVENT_HEADER);
}
extern "C" int LLVMFuzzerTestOneInput(const unsigned char* apInput, std::size_t aSize) {
    [[maybe_unused]] static const bool sIsOpen = (discardLog(), LibdfcGate().open(), true);
    const std::vector<unsigned char> lPayload(apInput, apInput + aSize);
    const auto lLength = static_cast<std::uint32_t>(aSize);
    const std::uint32_t lClaims[] = {20 + lLength, 20 + lLength, 0, 19, 20, 65557, 0x80000000, 0xffffffff};
    const ZT_event_descriptor lDescriptor{0, aSize % 5 == 1 ? nullptr : lPayload.data()};
    const ZT_event lEvent{1, lClaims[aSize == 0 ? 0 : apInput[0] % 8], &lDescriptor};
    LibdfcWrap(ZT_generic_callback{readGeneric})(0, {}, 1, 32, nullptr, &lEvent);
    LibdfcWrap(ZT_DFC_LINK, readLink)(0, lPayload.data(), lLength);
    LibdfcWrap(ZT_DFC_RSCN, readRscn)(0, lPayload.data(), lLength);
    return 0;
}
