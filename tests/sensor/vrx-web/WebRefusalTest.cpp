// What is no right request: refused in one line, and nothing of the program or of the store is the worse for
// it.
#include <nlohmann/json.hpp>

#include "WebProgram.h"
#include "WebRoutes.h"

namespace {

using Json = nlohmann::json;

// What every answer has, whatever was asked.
void sExpectSafe(const ZTSWebReply& acrReply, const std::string& acrWhat) {
    SCOPED_TRACE(acrWhat.substr(0, 200));
    EXPECT_TRUE(
        acrReply.getHeader("Content-Security-Policy").starts_with("default-src 'none'; script-src 'self'"));
    EXPECT_EQ(acrReply.getHeader("X-Content-Type-Options"), "nosniff");
    EXPECT_EQ(acrReply.getHeader("Referrer-Policy"), "no-referrer");
    EXPECT_EQ(acrReply.getHeader("Cross-Origin-Resource-Policy"), "same-origin");
    EXPECT_EQ(acrReply.getHeader("Access-Control-Allow-Origin"), "");
}

// An error is one line of JSON, and says nothing of how the store is asked.
void sExpectError(const ZTSWebReply& acrReply, const std::string& acrWhat) {
    SCOPED_TRACE(acrWhat.substr(0, 200));
    sExpectSafe(acrReply, acrWhat);
    EXPECT_EQ(acrReply.getHeader("Content-Type"), "application/json");
    const Json lError = Json::parse(acrReply.mBody, nullptr, false);
    ASSERT_TRUE(lError.is_object() && lError.contains("error")) << acrReply.mBody;
    const std::string lText = lError["error"];
    EXPECT_FALSE(lText.empty() || contains(lText, "\n") || lText.size() > 500) << lText;
    for (const char* const lpWord : {"syntax error", "no such", "unrecognized token", "SQL logic"}) {
        EXPECT_FALSE(contains(lText, lpWord)) << lText;
    }
}

struct Refused {
    std::string mBytes;
    std::vector<unsigned int> mStatuses;  // 0: the connection is closed
};

TEST(WebRefusal, WhatIsNoRequestIsRefusedAndHoldsUpNobody) {
    const std::string lHost = "Host: localhost\r\n";
    const std::string lMuch(1 << 20, 'a');
    std::string lLines;
    for (int lLine = 0; lLine < 10000; ++lLine) {
        lLines += "x" + std::to_string(lLine) + ": 1\r\n";
    }
    const Refused lRows[] = {
        {std::string("\x16\x03\x01\x02\0\x01\0\x01\xfc\x03\x03", 11) + "\r\n\r\n", {0, 400}},
        {std::string(4096, '\0') + "\r\n\r\n", {0, 400}},
        {"\r\n\r\n\r\n\r\n \r\n\r\n", {0, 400}},
        {"GET /\r\n\r\n", {0, 400, 505}},
        {"GET / HTTP/1.0\r\n\r\n", {400, 403}},
        {"GET / HTTP/9.9\r\n" + lHost + "\r\n", {0, 400, 505}},
        {"GET / HTTP/1.1\r\n\r\n", {400, 403}},
        {"GET / HTTP/1.1\r\n" + lHost + "Host: evil.example\r\n\r\n", {400, 403}},
        {"GET / HTTP/1.1\r\nHost: evil.example\r\n" + lHost + "\r\n", {400, 403}},
        {"GET http://evil.example/ HTTP/1.1\r\n" + lHost + "\r\n", {400, 403, 404}},
        {"GET http://localhost/api/v1/ports HTTP/1.1\r\n" + lHost + "\r\n", {400, 403, 404}},
        {"GET * HTTP/1.1\r\n" + lHost + "\r\n", {400, 404}},
        {"GET api HTTP/1.1\r\n" + lHost + "\r\n", {400, 404}},
        {"GET /\x01\x7f\xff HTTP/1.1\r\n" + lHost + "\r\n", {400, 404}},
        {"GET /" + lMuch + " HTTP/1.1\r\n" + lHost + "\r\n", {0, 400, 414, 431}},
        {"GET /api/v1/records?kind=" + lMuch + " HTTP/1.1\r\n" + lHost + "\r\n", {0, 400, 414, 431}},
        {"GET / HTTP/1.1\r\n" + lHost + "Cookie: " + lMuch + "\r\n\r\n", {0, 413, 431}},
        {"GET / HTTP/1.1\r\n" + lHost + lMuch + ": a\r\n\r\n", {0, 413, 431}},
        {"GET / HTTP/1.1\r\n" + lHost + lLines + "\r\n", {0, 413, 431}},
        {lMuch, {0, 400, 405, 414, 431}},
        {"GET / HTTP/1.1\r\n" + lHost + "Content-Length: -1\r\n\r\n", {0, 400}},
        {"GET / HTTP/1.1\r\n" + lHost + "Content-Length: 99999999999999999999\r\n\r\n", {0, 400, 413}},
        {"POST / HTTP/1.1\r\n" + lHost + "Content-Length: 3\r\n\r\nabc", {405}},
        {"PUT /api/v1/ports HTTP/1.1\r\n" + lHost + "Transfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n0\r\n\r\n",
         {405}},
        {"POST / HTTP/1.1\r\n" + lHost + "Content-Length: 1000000000000\r\n\r\n" + lMuch, {0, 405, 413}},
        {"DELETE /api/v1/incidents/1 HTTP/1.1\r\n" + lHost + "\r\n", {405}},
        {"OPTIONS / HTTP/1.1\r\n" + lHost + "Origin: http://evil.example\r\n\r\n", {405}},
        {"TRACE / HTTP/1.1\r\n" + lHost + "\r\n", {405}},
        {"CONNECT evil.example:80 HTTP/1.1\r\n" + lHost + "\r\n", {0, 400, 405}},
        {"PROPFIND / HTTP/1.1\r\n" + lHost + "\r\n", {405}},
        {"get / HTTP/1.1\r\n" + lHost + "\r\n", {0, 400, 405}},
    };
    const ZTSWebStand lStand({}, {"ZT_TEST_WEB_PERIODS=head=300"});
    ZTCWebClient lOther(lStand.mWeb.getPort());
    for (const Refused& lrRow : lRows) {
        const std::string lWhat = lrRow.mBytes.substr(0, 120);
        ZTCWebClient lClient(lStand.mWeb.getPort());
        lClient.send(lrRow.mBytes);
        lClient.close();
        const ZTSWebReply lReply = lClient.receive();
        EXPECT_NE(std::count(lrRow.mStatuses.begin(), lrRow.mStatuses.end(), lReply.mStatus), 0)
            << lWhat << " -> " << lReply.mHead;
        if (lReply.mStatus == 405) {
            EXPECT_EQ(lReply.getHeader("Allow"), "GET, HEAD") << lWhat;
            sExpectError(lReply, lWhat);
        }
        EXPECT_FALSE(contains(lReply.mBody, "evil.example")) << lReply.mBody;
        EXPECT_EQ(lOther.get("/").mStatus, 200U) << lWhat;
    }
    if (!ZTIsSanitized) {
        EXPECT_LE(lStand.mWeb.getMemory("VmHWM"), 60U << 10);
    }
}

// Right requests with some bytes changed, left out, or put in.
TEST(WebRefusal, AlmostRightRequestsEndNeitherTheProgramNorItsAnswers) {
    const ZTSWebStand lStand;
    std::mt19937 lRandom(18);
    const auto lBelow = [&](std::size_t aEnd) { return lRandom() % aEnd; };
    const char* const lPaths[] = {"/api/v1/records?since=-30d&kind=logo&limit=3", "/api/v1/incidents/1?x=%41",
                                  "/api/v1/timeline?by=kind&bins=10", "/page/app.js", "/api/v1/stream"};
    for (unsigned int lRound = 0; lRound < ZTTestRounds(300U, 20000U); ++lRound) {
        std::string lBytes = ZTWebGet(lPaths[lBelow(std::size(lPaths))],
                                      "Last-Event-ID: 7\r\nAccept-Encoding: gzip\r\nRange: bytes=1-\r\n");
        for (std::size_t lChange = 1 + lBelow(4); lChange > 0; --lChange) {
            const std::size_t lAt = lBelow(lBytes.size());
            switch (lBelow(3)) {
                case 0:
                    lBytes[lAt] = static_cast<char>(lRandom());
                    break;
                case 1:
                    lBytes.erase(lAt, lBelow(8));
                    break;
                default:
                    lBytes.insert(lAt, 1 + lBelow(8), static_cast<char>(lRandom()));
            }
        }
        ZTCWebClient lClient(lStand.mWeb.getPort());
        lClient.send(lBytes + "\r\n\r\n");
    }
    EXPECT_EQ(lStand.mWeb.get("/api/v1/ports").mStatus, 200U);
}

TEST(WebRefusal, NoPathLeadsToAFile) {
    const ZTSWebStand lStand;
    ZTCWebClient lClient(lStand.mWeb.getPort());
    for (const char* const lpPath : {"/../../../../etc/passwd",
                                     "/page/../../../../etc/passwd",
                                     "/page/%2e%2e/%2e%2e/etc/passwd",
                                     "/page/..%2f..%2fetc%2fpasswd",
                                     "/page/%252e%252e/etc/passwd",
                                     "//etc/passwd",
                                     "/page//etc/passwd",
                                     "/page/..\\..\\etc\\passwd",
                                     "/page/app.js%00.css",
                                     "/page/app.js/",
                                     "/page/app.js/..",
                                     "/page/",
                                     "/page",
                                     "/./",
                                     "/index.html/../page/app.js",
                                     "/.git/config",
                                     "/api/v1/incidents/../ports",
                                     "/api/v1/incidents/",
                                     "/api/v1/incidents/1/2",
                                     "/api/v1/",
                                     "/api/v1/ports/",
                                     "/API/v1/ports",
                                     "/%61pi/v1/ports",
                                     "/metrics/",
                                     "/healthz/x",
                                     "/..",
                                     "/?/../../etc/passwd/.."}) {
        const ZTSWebReply lReply = lClient.get(lpPath);
        EXPECT_TRUE(lReply.mStatus == 404 || lReply.mStatus == 400 || std::string(lpPath).starts_with("/?"))
            << lpPath << " -> " << lReply.mHead;
        EXPECT_FALSE(contains(lReply.mBody, "root:")) << lpPath;
        sExpectSafe(lReply, lpPath);
    }
}

// A page of somebody else's, whose name leads to this host, must not read the answers.
TEST(WebRefusal, AHostOfAForeignNameIsRefused) {
    const ZTSWebStand lStand({"--allow-host", "db7.example.net"});
    ZTCWebClient lClient(lStand.mWeb.getPort());
    const auto lStatusOf = [&](const std::string& acrHost) {
        const ZTSWebReply lReply = lClient.ask("GET /api/v1/ports HTTP/1.1\r\nHost: " + acrHost + "\r\n\r\n");
        sExpectSafe(lReply, acrHost);
        return lReply.mStatus;
    };
    for (const char* const lpHost :
         {"localhost", "localhost:9180", "LOCALHOST", "127.0.0.1", "127.0.0.1:80", "192.0.2.7:9180", "[::1]",
          "[2001:db8::1]:443", "db7.example.net", "DB7.Example.NET:9180"}) {
        EXPECT_EQ(lStatusOf(lpHost), 200U) << lpHost;
    }
    for (const char* const lpHost :
         {"evil.example", "localhost.evil.example", "127.0.0.1.evil.example", "evil.example:127.0.0.1",
          "localhost@evil.example", "[::1].evil.example", "[::1", "db7.example.net.evil.example",
          "xdb7.example.net", "db7.example.net:9180:1", "localhost:", "localhost:x",
          "127.0.0.1, evil.example", "1.2.3.4.5", "."}) {
        const unsigned int lStatus = lStatusOf(lpHost);
        EXPECT_TRUE(lStatus == 403 || lStatus == 400 || std::string(lpHost) == "localhost:")
            << lpHost << lStatus;
    }
}

// Each parameter of each path, and each of what people try.
TEST(WebRefusal, NoParameterIsMoreThanAValue) {
    const ZTSWebStand lStand;
    ZTCWebClient lClient(lStand.mWeb.getPort());
    const std::string lValues[] = {"'",
                                   "%27%20OR%201=1--",
                                   "x%27);DROP%20TABLE%20records;--",
                                   "1%20UNION%20SELECT%20sql%20FROM%20sqlite_master",
                                   "%22;ATTACH%20%27/tmp/x%27%20AS%20x;--",
                                   "-1",
                                   "9223372036854775808",
                                   "-9223372036854775809",
                                   "1e309",
                                   "NaN",
                                   "",
                                   "%00",
                                   "%ff%fe",
                                   "%",
                                   "%zz",
                                   "%0a%0dX-Injected:%20yes",
                                   "%3Cscript%3Ealert(1)%3C/script%3E",
                                   "..%2f..%2fetc%2fpasswd",
                                   "%25s%25n",
                                   std::string(3000, 'A'),
                                   "9999-99-99T99:99:99Z",
                                   "0001-01-01T00:00:00Z",
                                   "%E2%80%AE",
                                   "5006016006e02141"};
    unsigned int lAsked = 0;
    for (const ZTSWebRoute& lrRoute : listWebRoutes()) {
        const std::string lPath = std::string(lrRoute.mPath) + (lrRoute.mPath.ends_with('/') ? "1" : "");
        std::vector<std::string> lNames(lrRoute.mParameters.begin(), lrRoute.mParameters.end());
        lNames.emplace_back("unknown");
        for (const std::string& lrName : lNames) {
            for (const std::string& lrValue : lValues) {
                const std::string lAsk = lPath + "?" + lrName + "=" + lrValue;
                const ZTSWebReply lReply = lClient.get(lAsk);
                SCOPED_TRACE(lAsk.substr(0, 200));
                ++lAsked;
                EXPECT_EQ(lReply.getHeader("X-Injected"), "");
                if (lrName == "unknown" || lReply.mStatus != 200) {
                    EXPECT_TRUE(lReply.mStatus == 400 || lReply.mStatus == 404) << lReply.mHead;
                    sExpectError(lReply, lAsk);
                } else {
                    sExpectSafe(lReply, lAsk);
                }
            }
        }
        if (lrRoute.mPath.ends_with('/')) {
            for (const std::string& lrValue : lValues) {
                const unsigned int lStatus = lClient.get(std::string(lrRoute.mPath) + lrValue).mStatus;
                EXPECT_TRUE(lStatus == 400 || lStatus == 404) << lrValue << lStatus;
            }
        }
    }
    EXPECT_GT(lAsked, 500U);
    std::string lMany = "/api/v1/records?";
    for (int lTimes = 0; lTimes < 100; ++lTimes) {
        lMany += "kind=logo&";
    }
    EXPECT_EQ(lClient.get(lMany).mStatus, 400U);
    EXPECT_EQ(lStand.mWeb.get("/api/v1/records").mStatus, 200U);
}

}  // namespace
