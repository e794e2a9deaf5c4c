// Whatever is asked of the API: it is answered, in JSON, or refused in one line that can be shown. And what
// is an event's id is one for ever.
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "ShownText.h"
#include "StoryStore.h"
#include "WebAsk.h"
#include "WebEventId.h"

namespace {

// Its files go with the process.
class Store {
  public:
    Store() {
        char lName[] = "/tmp/web-fuzz-XXXXXX";
        const std::string lFolder = mkdtemp(lName);
        ZTWriteShownStory(lFolder + "/history.db");
        mFolder = lFolder;
    }
    ~Store() { std::filesystem::remove_all(mFolder); }
    std::string getPath() const { return mFolder / "history.db"; }

  private:
    std::filesystem::path mFolder;
};

// The first byte chooses the path, and each control character is the name of one of its parameters.
std::string targetOf(const std::uint8_t* apData, std::size_t aSize) {
    const auto lRoutes = listWebRoutes();
    const ZTSWebRoute& lrRoute = lRoutes[aSize != 0 ? apData[0] % lRoutes.size() : 0];
    std::string lText(lrRoute.mPath);
    lText += lText.ends_with('/') ? "" : "?";
    for (std::size_t lAt = 1; lAt < aSize; ++lAt) {
        const std::uint8_t lByte = apData[lAt];
        if (lByte < ' ' && !lrRoute.mParameters.empty()) {
            ((lText += '&') += lrRoute.mParameters[lByte % lrRoute.mParameters.size()]) += '=';
        } else {
            lText += static_cast<char>(lByte);
        }
    }
    return lText;
}

void check(bool aIsSo) {
    if (!aIsSo) {
        abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* apData, std::size_t aSize) {
    const std::string_view lBytes(reinterpret_cast<const char*>(apData), aSize);
    if (const auto lId = ZTSWebEventId::fromText(lBytes)) {
        check(ZTSWebEventId::fromText(lId->toText())->toText() == lId->toText());
    }
    static const Store sStore;
    static ZTCWebHistory sHistory(sStore.getPath());
    const ZTSWebAsked lAsked = ZTAskWeb(sHistory, targetOf(apData, aSize));
    const bool lIsJson = std::string_view(lAsked.mAnswer.mpType) == "application/json";
    check(lAsked.mAnswer.mStatus == 200 || lAsked.mAnswer.mStatus == 400 || lAsked.mAnswer.mStatus == 404);
    check(!lIsJson || lAsked.mJson.is_object());
    if (lAsked.mAnswer.mStatus != 200) {
        const std::string lText = lAsked.mJson.at("error");
        check(!lText.empty() && lText.size() < 2048 && toShownText(lText) == lText);
    }
    return 0;
}
