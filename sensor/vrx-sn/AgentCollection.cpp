#include "AgentCollection.h"

// Figures that are some seconds old say nothing of that.
bool isIdle(const ZTSBookFigures* apFigures) {
    return apFigures != nullptr && apFigures->mIsAsOfNow &&
           apFigures->mAgent.get("collecting") == std::uint64_t{0};
}

std::optional<std::map<std::string, std::uint64_t>> libraryOf(const ZTSBookFigures* apFigures) {
    if (apFigures == nullptr || !apFigures->mLibrary) {
        return std::nullopt;
    }
    std::map<std::string, std::uint64_t> lLibrary;
    for (const ZTSStatistic& lrRow : apFigures->mLibrary->mRows) {
        lLibrary[lrRow.mName] = lrRow.mValue;
    }
    return lLibrary;
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
