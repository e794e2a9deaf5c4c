#include "TestSupport.h"
#include "WebDesk.h"

namespace {

using What = ZTSWebReaction::What;

struct Row {
    const char* mpTarget;
    What mWhat;
    unsigned int mStatus = 200;
};

class WebDesk : public ::testing::Test {
  protected:
    static ZTSWebHead headOf(std::string_view aTarget) {
        ZTSWebHead lHead;
        lHead.mMethod = "GET";
        lHead.mTarget = aTarget;
        lHead.mHost = "localhost";
        return lHead;
    }
    void expect(const Row& acrRow, const ZTSWebHead& acrHead) const {
        const ZTSWebReaction lReaction = mDesk.decide(acrHead);
        EXPECT_EQ(lReaction.mWhat, acrRow.mWhat) << acrRow.mpTarget;
        EXPECT_EQ(lReaction.mAnswer.mStatus, acrRow.mStatus) << acrRow.mpTarget;
        EXPECT_EQ(lReaction.mWork != nullptr, acrRow.mWhat == What::Work) << acrRow.mpTarget;
        EXPECT_EQ(lReaction.mInstead != nullptr, acrRow.mWhat == What::Work) << acrRow.mpTarget;
    }

    const ZTCTestDirectory mDirectory;
    const ZTCWebPage mPage{mDirectory.getPath()};
    ZTCWebHealth mHealth{mDirectory.getPath()};
    ZTCWebMetrics mMetrics{mHealth, mDirectory.getPath()};
    ZTCWebDesk mDesk{mPage, mHealth, mMetrics};
};

constexpr Row sRows[] = {{"/", What::Answer},
                         {"/?x", What::Answer},
                         {"/healthz", What::Answer, 503},  // nobody collects
                         {"/metrics", What::Work},
                         {"/api/v1/ports", What::Work},
                         {"/api/v1/incidents/1", What::Work},
                         {"/api/v1/records?limit=1", What::Work},
                         {"/api/v1/records?nonsense=1", What::Answer, 400},
                         {"/api/v1/records?limit=%zz", What::Answer, 400},
                         {"/api/v1/stream", What::Stream},
                         {"/api/v1/stream?last_event_id=1", What::Stream},
                         {"/api/v1/stream?since=1", What::Answer, 400},
                         {"/api/v1/nothing", What::Answer, 404},
                         {"/page/../etc/passwd", What::Answer, 404},
                         {"/page/%2e%2e/etc/passwd", What::Answer, 404},
                         {"//", What::Answer, 404},
                         {"http://localhost/", What::Answer, 400}};

TEST_F(WebDesk, EachPathHasItsReaction) {
    for (const Row& lrRow : sRows) {
        expect(lrRow, headOf(lrRow.mpTarget));
    }
    EXPECT_EQ(mDesk.decide(headOf("/api/v1/stream?last_event_id=abc")).mLastEventId, "abc");
    ZTSWebHead lHead = headOf("/api/v1/stream?last_event_id=abc");
    lHead.mLastEventId = "def";
    EXPECT_EQ(mDesk.decide(lHead).mLastEventId, "def");
}

TEST_F(WebDesk, TheTokenIsAskedForButForThePageAndTheHealth) {
    mDesk.setTokens(ZTCWebTokens("0123456789abcdef"));
    for (const Row& lrRow : sRows) {
        const bool lIsFree = lrRow.mpTarget[1] == '\0' || lrRow.mpTarget[1] == '?' ||
                             lrRow.mpTarget[1] == 'h' || lrRow.mpTarget[0] != '/';
        ZTSWebHead lHead = headOf(lrRow.mpTarget);
        expect(lIsFree ? lrRow : Row{lrRow.mpTarget, What::Answer, 401}, lHead);
        lHead.mAuthorization = "Bearer wrong";
        expect(lIsFree ? lrRow : Row{lrRow.mpTarget, What::Guess, 401}, lHead);
        lHead.mMayGuess = false;
        expect(lIsFree ? lrRow : Row{lrRow.mpTarget, What::Answer, 429}, lHead);
        // Who guesses too much is not told whether it was the right one.
        lHead.mAuthorization = "Bearer 0123456789abcdef";
        expect(lIsFree ? lrRow : Row{lrRow.mpTarget, What::Answer, 429}, lHead);
        lHead.mMayGuess = true;
        expect(lrRow, lHead);
    }
}

TEST_F(WebDesk, WhatIsNoRequestForItIsRefused) {
    for (const char* const lpMethod : {"POST", "PUT", "DELETE", "OPTIONS", "TRACE", "CONNECT", "get", ""}) {
        ZTSWebHead lHead = headOf("/");
        lHead.mMethod = lpMethod;
        expect({lpMethod, What::Answer, 405}, lHead);
        const std::pair<std::string, std::string> lHeader = mDesk.decide(lHead).mAnswer.mHeaders.at(0);
        EXPECT_EQ(lHeader, std::pair(std::string("Allow"), std::string("GET, HEAD")));
    }
    ZTSWebHead lHead = headOf("/");
    lHead.mMethod = "HEAD";
    expect({"HEAD", What::Answer}, lHead);
    lHead.mHasBody = true;
    expect({"a body", What::Answer, 413}, lHead);
    lHead = headOf("/healthz");
    lHead.mHost = "evil.example";
    expect({"a foreign name", What::Answer, 403}, lHead);
    mDesk.setNames({"evil.example"});
    expect({"a name of ours", What::Answer, 503}, lHead);
    lHead.mHosts = 2;
    expect({"two names", What::Answer, 403}, lHead);
    lHead.mHosts = 0;
    expect({"none", What::Answer, 403}, lHead);
}

TEST_F(WebDesk, WhatIsKnownOfThePageIsNotSentAgain) {
    const ZTSWebAnswer lFirst = mDesk.decide(headOf("/")).mAnswer;
    EXPECT_GT(lFirst.mpBody->size(), 0U);
    ZTSWebHead lHead = headOf("/");
    lHead.mKnownTag = lFirst.mHeaders.at(0).second;
    const ZTSWebAnswer lAgain = mDesk.decide(lHead).mAnswer;
    EXPECT_EQ(lAgain.mStatus, 304U);
    EXPECT_EQ(lAgain.mpBody->size(), 0U);
    lHead.mKnownTag = "\"other\"";
    EXPECT_EQ(mDesk.decide(lHead).mAnswer.mStatus, 200U);
}

TEST(WebPage, CurvesAreThereWhenTheirLibraryIs) {
    const ZTCTestDirectory lDirectory;
    EXPECT_NE(ZTCWebPage(lDirectory.getPath()).getTrouble(), "");
    EXPECT_EQ(ZTCWebPage(lDirectory.getPath()).find("/page/dygraph.css"), nullptr);
    writeFile(lDirectory / "dygraph.min.js", "curves");
    writeFile(lDirectory / "dygraph.css", "style");
    const ZTCWebPage lPage(lDirectory.getPath());
    EXPECT_EQ(lPage.getTrouble(), "");
    EXPECT_EQ(*lPage.find("/page/dygraph.min.js")->mpBody, "curves");
    EXPECT_STREQ(lPage.find("/page/dygraph.css")->mpType, "text/css; charset=utf-8");
    EXPECT_STREQ(lPage.find("/")->mpType, "text/html; charset=utf-8");
    EXPECT_EQ(lPage.find("/page/index.html"), nullptr);
}

}  // namespace
