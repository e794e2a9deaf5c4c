#include "WebDesk.h"

#include <chrono>

#include "WebRoutes.h"

namespace {

constexpr char sHealth[] = "/healthz";
constexpr char sMetrics[] = "/metrics";
constexpr char sStream[] = "/api/v1/stream";
constexpr char sLastEventId[] = "last_event_id";

using What = ZTSWebReaction::What;

ZTSWebAnswer sWithHeader(ZTSWebAnswer aAnswer, const char* apName, const char* apValue) {
    aAnswer.mHeaders.emplace_back(apName, apValue);
    return aAnswer;
}

ZTSWebReaction sAnswer(ZTSWebAnswer aAnswer) {
    return {What::Answer, std::move(aAnswer)};
}

// What the history does not tell in time is told as it was last known.
ZTSWebReaction sMeasure(ZTCWebMetrics& arMetrics) {
    return {What::Work,
            {},
            [&arMetrics](ZTCWebHistory& arHistory) {
                try {
                    arMetrics.read(arHistory.getReader());
                } catch (const ZTCStoreError&) {
                    arHistory.close();
                }
                return arMetrics.answer();
            },
            [&arMetrics](const std::string& /*acrWhy*/) { return arMetrics.answer(); }};
}

ZTNanoseconds sNow() {
    const auto lNow = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::nanoseconds>(lNow).count();
}

// The header is what a browser sends by itself, the parameter what a page says that reads the stream itself.
ZTSWebReaction sFollow(const ZTSWebRequest& acrRequest) {
    std::string lId = acrRequest.mLastEventId;
    for (const ZTSWebParameter& lrParameter : acrRequest.mParameters) {
        if (lrParameter.mName != sLastEventId) {
            throw ZTCWebRefusal("there is no parameter " + lrParameter.mName +
                                ": the stream takes last_event_id");
        }
        lId = lId.empty() ? lrParameter.mValue : lId;
    }
    return {What::Stream, {}, {}, {}, std::move(lId)};
}

}  // namespace

ZTSWebAnswer answerLater(unsigned int aStatus, const std::string& acrWhy) {
    return sWithHeader(answerError(aStatus, acrWhy), "Retry-After", "1");
}

ZTSWebReaction ZTCWebDesk::decide(const ZTSWebHead& acrHead) const {
    if (auto lRefusal = refuse(acrHead)) {
        return sAnswer(std::move(*lRefusal));
    }
    const std::string_view lPath = acrHead.mTarget.substr(0, acrHead.mTarget.find('?'));
    if (const ZTCWebPage::File* const lpFile = mrPage.find(lPath)) {
        return sAnswer(answerPageFile(*lpFile, acrHead.mKnownTag));
    }
    if (lPath == sHealth) {
        return sAnswer(answerHealth(mrHealth.getState(sNow())));
    }
    if (auto lRefusal = checkToken(acrHead)) {
        return std::move(*lRefusal);
    }
    try {
        return route(acrHead, lPath);
    } catch (const ZTCWebRefusal& lrError) {
        return sAnswer(answerError(400, lrError.what()));
    }
}

std::optional<ZTSWebAnswer> ZTCWebDesk::refuse(const ZTSWebHead& acrHead) const {
    if (acrHead.mMethod != "GET" && acrHead.mMethod != "HEAD") {
        return sWithHeader(answerError(405, "nothing but GET and HEAD is answered"), "Allow", "GET, HEAD");
    }
    if (acrHead.mHosts != 1 || !isAllowedHost(acrHead.mHost, mNames)) {
        return answerError(403, "by this name nothing is served here: ask by address, or see --allow-host");
    }
    if (acrHead.mHasBody) {
        return answerError(413, "a request has no body here");
    }
    if (!isPlainTarget(acrHead.mTarget)) {
        return answerError(400, "a request names a path that begins with /, in plain characters");
    }
    return std::nullopt;
}

std::optional<ZTSWebReaction> ZTCWebDesk::checkToken(const ZTSWebHead& acrHead) const {
    if (!mTokens.isAsked()) {
        return std::nullopt;
    }
    const auto lRefuse = [](const char* apWhy) {
        return sWithHeader(answerError(401, apWhy), "WWW-Authenticate", "Bearer");
    };
    if (acrHead.mAuthorization.empty()) {
        return sAnswer(lRefuse("a token is needed: Authorization: Bearer"));
    }
    if (!acrHead.mMayGuess) {  // not even looked at
        return sAnswer(answerLater(429, "too many wrong tokens: wait"));
    }
    if (!mTokens.isRight(acrHead.mAuthorization)) {
        return ZTSWebReaction{What::Guess, lRefuse("the token is wrong")};
    }
    return std::nullopt;
}

ZTSWebReaction ZTCWebDesk::route(const ZTSWebHead& acrHead, std::string_view aPath) const {
    const bool lHasQuery = aPath.size() < acrHead.mTarget.size();
    ZTSWebRequest lRequest;
    lRequest.mPath = aPath;
    lRequest.mLastEventId = acrHead.mLastEventId;
    if (lHasQuery) {
        lRequest.mParameters = readWebParameters(acrHead.mTarget.substr(aPath.size() + 1));
    }
    if (aPath == sMetrics) {
        return sMeasure(mrMetrics);
    }
    if (aPath == sStream) {
        return sFollow(lRequest);
    }
    if (const ZTSWebRoute* const lpRoute = findWebRoute(aPath)) {
        checkWebParameters(*lpRoute, lRequest);
        return {
            What::Work,
            {},
            [lpRoute, lRequest](ZTCWebHistory& arHistory) { return lpRoute->mpAnswer(arHistory, lRequest); },
            [](const std::string& acrWhy) { return answerLater(503, acrWhy); }};
    }
    return sAnswer(answerError(404, "there is no such path"));
}
