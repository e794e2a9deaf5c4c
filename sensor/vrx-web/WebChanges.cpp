#include "WebLists.h"

ZTSWebAnswer answerChanges(ZTCWebHistory& arHistory, const ZTSWebRequest& acrRequest) {
    const std::vector<std::string> lWhats = textsOf(acrRequest, "what");
    checkWhats(lWhats);
    return answerNewest<ZTSChange>(arHistory, acrRequest, "changes", [&](const ZTSChange& acrChange) {
        return lWhats.empty() || std::ranges::find(lWhats, acrChange.mWhat) != lWhats.end();
    });
}
