#include "TestSupport.h"
#include "WebGuard.h"

namespace {

constexpr char sToken[] = "0123456789abcdef";

TEST(WebGuard, WhoAsksByAnotherNameIsNotAnswered) {
    const std::vector<std::string> lNames{"Stor-1.example.org"};
    for (const char* const lpHost :
         {"127.0.0.1", "127.0.0.1:9180", "[::1]", "[fe80::1]:9180", "localhost", "localhost:", "LocalHost:1",
          "10.1.2.3:65535", "stor-1.EXAMPLE.org", "stor-1.example.org:443"}) {
        EXPECT_TRUE(isAllowedHost(lpHost, lNames)) << lpHost;
    }
    for (const char* const lpHost : {"",
                                     ":9180",
                                     "evil.example",
                                     "localhost.evil.example",
                                     "127.0.0.1.evil.example",
                                     "stor-1.example.org.",
                                     "stor-1.example.org.evil",
                                     "xstor-1.example.org",
                                     "localhost:123456",
                                     "localhost:9180:1",
                                     "localhost:a",
                                     "127.0.0.1 ",
                                     "user@localhost",
                                     "localhost/",
                                     "[::1",
                                     "::1",
                                     "[evil.example]",
                                     "[]",
                                     "[::1]x",
                                     "0x7f.1",
                                     "1",
                                     "127.1",
                                     "localhost,evil.example"}) {
        EXPECT_FALSE(isAllowedHost(lpHost, lNames)) << lpHost;
    }
    EXPECT_FALSE(isAllowedHost("stor-1.example.org", {}));
}

TEST(WebGuard, NamesAndTargetsArePlain) {
    for (const char* const lpName : {"a", "stor-1.example.org", "stor_1"}) {
        EXPECT_TRUE(isWebHostName(lpName)) << lpName;
    }
    for (const std::string& lrName : {std::string(), std::string("a b"), std::string("a:1"), std::string("*"),
                                      std::string("\xc3\xa4"), std::string(254, 'a')}) {
        EXPECT_FALSE(isWebHostName(lrName)) << lrName;
    }
    EXPECT_TRUE(isPlainTarget("/api/v1/records?kind=a%20b&since=-2h"));
    for (const std::string_view lTarget :
         {"", "*", "http://localhost/", "api", "/a b", "/a#b", "/\x7f", "/\xc3\xa4", "/\t"}) {
        EXPECT_FALSE(isPlainTarget(lTarget)) << lTarget;
    }
}

TEST(WebGuard, OneOfTheLinesLetsIn) {
    const ZTCWebTokens lTokens("# of the page\n\n  0123456789abcdef \r\nfedcba9876543210\n");
    EXPECT_TRUE(lTokens.isAsked());
    for (const char* const lpRight :
         {"Bearer 0123456789abcdef", "bearer fedcba9876543210", "Bearer   fedcba9876543210 "}) {
        EXPECT_TRUE(lTokens.isRight(lpRight)) << lpRight;
    }
    for (const std::string& lrWrong :
         {std::string(), std::string("Bearer"), std::string("Bearer "), std::string(sToken),
          std::string("Basic ") + sToken, std::string("Bearer 0123456789abcde"),
          std::string("Bearer 0123456789abcdef0"), std::string("Bearer 0123456789abcdeF"),
          std::string("Bearer 0123456789abcdef fedcba9876543210"), std::string("Bearer # of the page"),
          std::string("Bearer 0123456789abcdef") + std::string(1, '\0'),
          "Bearer " + std::string(ZTCWebTokens::Longest + 1, 'a')}) {
        EXPECT_FALSE(lTokens.isRight(lrWrong)) << lrWrong;
    }
    EXPECT_FALSE(ZTCWebTokens().isAsked());
    EXPECT_FALSE(ZTCWebTokens().isRight("Bearer "));
    const std::string lLongest(ZTCWebTokens::Longest, 'a');
    EXPECT_TRUE(ZTCWebTokens(lLongest).isRight("Bearer " + lLongest));
}

TEST(WebGuard, AFileWithoutGoodTokensIsRefused) {
    std::string lMany;
    for (std::size_t lLine = 0; lLine <= ZTCWebTokens::Most; ++lLine) {
        lMany += std::string(sToken) + "\n";
    }
    for (const std::string& lrText :
         {std::string(), std::string("# nothing\n\n"), std::string("short\n"),
          std::string("0123456789 abcdef\n"), std::string("0123456789abcde\xc3\xa4"),
          std::string(ZTCWebTokens::Longest + 1, 'a'), lMany}) {
        EXPECT_THROW(ZTCWebTokens{lrText}, std::runtime_error) << lrText.substr(0, 20);
    }
}

}  // namespace
