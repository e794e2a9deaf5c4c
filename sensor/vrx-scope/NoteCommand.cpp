#include <fmt/format.h>

#include "CommandParts.h"
#include "Failure.h"
#include "StoreAsk.h"
#include "StoreReader.h"

namespace {

constexpr std::size_t sLongestSubject = 200;

std::string sTextOf(const std::vector<std::string>& acrWords) {
    std::string lText = fmt::format("{}", fmt::join(acrWords, " "));
    checkAskText("the note", lText);
    if (lText.find_first_not_of(' ') == std::string::npos) {
        throw ZTCScopeUsage("a note has a text");
    }
    return lText;
}

}  // namespace

int runNote(const ZTSScopeOptions& acrOptions) {
    const std::string& lrStore = acrOptions.mHistory.mStore;
    ZTSStoreRequest lRequest;
    lRequest.mWhat = "note";
    lRequest.mText = sTextOf(acrOptions.mHistory.mNote);
    lRequest.mSubject = acrOptions.mHistory.mAbout;
    checkAskText("--about", lRequest.mSubject, sLongestSubject);
    // A reader finds what is no history, and says so in its own line.
    { const ZTCStoreReader lReader(lrStore); }
    checkAsking(lrStore, "note");
    askThroughStore(lrStore, lRequest, "note");
    putDone(acrOptions, "note", "noted");
    return 0;
}
