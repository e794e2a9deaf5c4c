// Decides what becomes of a request: an answer at once, work for those who may wait for the history, or a
// place in the stream.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "WebGuard.h"
#include "WebMetrics.h"
#include "WebPage.h"
#include "WebState.h"
#include "WebWorkers.h"

/// What of a request matters. Texts are as they were sent; what is not there is empty.
struct ZTSWebHead {
    std::string_view mMethod;
    std::string_view mTarget;  ///< the path, and what stands behind "?"
    std::string_view mHost;
    std::size_t mHosts = 1;  ///< how often that stands there
    std::string_view mAuthorization;
    std::string_view mKnownTag;
    std::string_view mLastEventId;
    bool mHasBody = false;
    bool mMayGuess = true;  ///< not too many wrong tokens of its peer's wait
};

struct ZTSWebReaction {
    enum class What : unsigned char { Answer, Guess, Work, Stream };
    /// Makes an answer, given why there is no other.
    using Making = std::function<ZTSWebAnswer(const std::string& acrWhy)>;

    What mWhat = What::Answer;
    ZTSWebAnswer mAnswer{};       ///< Answer: at once; Guess: a while later
    ZTCWebWorkers::Work mWork{};  ///< Work
    Making mInstead{};            ///< Work: the answer if that is not done
    std::string mLastEventId{};   ///< Stream: behind which it begins; may be empty
};

/// One thread, which never waits.
class ZTCWebDesk {
  public:
    ZTCWebDesk(const ZTCWebPage& acrPage, ZTCWebHealth& arHealth, ZTCWebMetrics& arMetrics)
        : mrPage(acrPage), mrHealth(arHealth), mrMetrics(arMetrics) {}

    /// Who is let in from now on.
    void setTokens(ZTCWebTokens aTokens) { mTokens = std::move(aTokens); }
    void setNames(std::vector<std::string> aNames) { mNames = std::move(aNames); }

    /// Throws std::bad_alloc.
    ZTSWebReaction decide(const ZTSWebHead& acrHead) const;

  private:
    std::optional<ZTSWebAnswer> refuse(const ZTSWebHead& acrHead) const;
    std::optional<ZTSWebReaction> checkToken(const ZTSWebHead& acrHead) const;
    ZTSWebReaction route(const ZTSWebHead& acrHead, std::string_view aPath) const;

    const ZTCWebPage& mrPage;
    ZTCWebHealth& mrHealth;
    ZTCWebMetrics& mrMetrics;
    ZTCWebTokens mTokens;
    std::vector<std::string> mNames;
};

/// That something cannot be had just now: 429 or 503.
ZTSWebAnswer answerLater(unsigned int aStatus, const std::string& acrWhy);
