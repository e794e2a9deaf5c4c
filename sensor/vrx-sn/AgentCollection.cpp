#include "AgentCollection.h"

// Figures that are some seconds old say nothing of that.
bool isIdle(const ZTSBookFigures* apFigures) {
    return apFigures != nullptr && apFigures->mIsAsOfNow &&
           apFigures->mAgent.get("collecting") == std::uint64_t{0};
}

void startCollection(ZTCSensorClient& arClient, const ZTSBookFigures* apFigures, std::uint32_t aCeiling) {
    if (!isIdle(apFigures)) {
        arClient.stop();
    }
    try {
        arClient.startScope(aCeiling);
    } catch (const ZTCRefusedError&) {
        arClient.stop();  // what it has registered
        throw;
    }
}
