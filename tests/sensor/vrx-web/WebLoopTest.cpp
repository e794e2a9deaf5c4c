// vrx-web as a service: when it is ready, what it reads anew, how it ends.
#include "TestManager.h"
#include "WebProgram.h"
#include "WebTls.h"

namespace {

using Words = std::vector<std::string>;

constexpr char sOld[] = "Authorization: Bearer 0123456789abcdef\r\n";
constexpr char sNew[] = "Authorization: Bearer fedcba9876543210\r\n";
constexpr char sQuick[] = "ZT_TEST_WEB_PERIODS=token=20,alive=50";

/// With a certificate and a token, and a Unix socket beside.
struct SafeStand {
    SafeStand() { startOver("old.example", "0123456789abcdef\n"); }

    void startOver(const std::string& acrName, const std::string& acrTokens) const {
        ZTMakeCertificate(acrName, mDirectory / "certificate", mDirectory / "key");
        writeFile(mDirectory / "tokens", acrTokens);
    }
    Words getArguments() const {
        return {"--listen", "127.0.0.1:0",         "--listen",      mDirectory / "web.sock",
                "--key",    mDirectory / "key",    "--certificate", mDirectory / "certificate",
                "--config", mDirectory / "config", "--token-file",  mDirectory / "tokens"};
    }
    void reload(ZTCWebRun& arWeb, const std::string& acrLine) const {
        const std::size_t lBefore = countIn(arWeb.getErr(), acrLine);
        arWeb.sendSignal(SIGHUP);
        EXPECT_TRUE(waitUntil([&] { return countIn(arWeb.getErr(), acrLine) > lBefore; })) << arWeb.getErr();
    }

    const ZTCWebStore mStore;
    const ZTCTestDirectory mDirectory;
};

TEST(WebLoop, WhatIsReadAnewIsForThoseWhoComeFromThenOn) {
    const SafeStand lStand;
    writeFile(lStand.mDirectory / "config", "allow-host = one.example\n");
    ZTCWebRun lWeb(lStand.mStore.getPath(), lStand.getArguments(), {sQuick});
    ZTCWebTlsClient lStream(lWeb.getPort());
    ZTCWebTlsClient lKept(lWeb.getPort());
    lStream.send(ZTWebGet("/api/v1/stream", sOld));
    EXPECT_TRUE(lStream.readUntil(": keep-alive"));
    EXPECT_EQ(lKept.get("/api/v1/ports", sOld).mStatus, 200U);
    EXPECT_TRUE(contains(lKept.getCertificate(), "old.example"));
    EXPECT_EQ(lKept.get("/api/v1/ports", sNew).mStatus, 401U);

    lStand.startOver("new.example", "fedcba9876543210");
    writeFile(lStand.mDirectory / "config", "allow-host = two.example\nstore = /other\n");
    lStand.reload(lWeb, "tokens and certificate are read anew");
    ZTCWebTlsClient lNew(lWeb.getPort());
    EXPECT_TRUE(contains(lNew.getCertificate(), "new.example"));
    for (ZTCWebClient* const lpClient : {&lNew, &lKept}) {
        EXPECT_EQ(lpClient->get("/api/v1/ports", sNew).mStatus, 200U);
        EXPECT_EQ(lpClient->get("/api/v1/ports", sOld).mStatus, 401U);
        EXPECT_EQ(lpClient->ask("GET / HTTP/1.1\r\nHost: one.example\r\n\r\n").mStatus, 403U);
        EXPECT_EQ(lpClient->ask("GET / HTTP/1.1\r\nHost: two.example\r\n\r\n").mStatus, 200U);
    }
    lStream.skip(": keep-alive");
    EXPECT_TRUE(lStream.readUntil(": keep-alive"));
    EXPECT_EQ(ZTCWebClient(lStand.mDirectory / "web.sock").get("/api/v1/ports", sNew).mStatus, 200U);

    // What cannot be used changes nothing.
    const std::pair<const char*, const char*> lBad[] = {{"tokens", "short"},
                                                        {"certificate", "none"},
                                                        {"certificate", ""},
                                                        {"key", "none"},
                                                        {"config", "unknown = 1"}};
    for (const auto& [lpFile, lpText] : lBad) {
        const std::string lBefore = readFile(lStand.mDirectory / lpFile);
        writeFile(lStand.mDirectory / lpFile, lpText);
        lStand.reload(lWeb, "the configuration stays as it was");
        writeFile(lStand.mDirectory / lpFile, lBefore);
        EXPECT_EQ(ZTCWebTlsClient(lWeb.getPort()).get("/api/v1/ports", sNew).mStatus, 200U) << lpFile;
    }
    EXPECT_EQ(lWeb.end(), 0);
    EXPECT_FALSE(std::filesystem::exists(lStand.mDirectory / "web.sock"));
}

TEST(WebLoop, OptionsThatNeedANewStartAreTold) {
    const ZTCWebStore lStore;
    const std::string lConfig = lStore.getDirectory() / "config";
    writeFile(lConfig, "");
    ZTCWebRun lWeb(ZTCWebRun::Whole{{ZT_TEST_WEB, "--listen", "127.0.0.1:0", "--config", lConfig}});
    writeFile(lConfig, "store = " + lStore.getPath() +
                           "\nfigures = /f\ncertificate = " + lStore.getDirectory().getPath() +
                           "/certificate\nkey = " + lStore.getDirectory().getPath() + "/key\n");
    ZTMakeCertificate("localhost", lStore.getDirectory() / "certificate", lStore.getDirectory() / "key");
    lWeb.sendSignal(SIGHUP);
    EXPECT_TRUE(waitUntil([&] {
        return contains(lWeb.getErr(), "only a new start changes --store, --figures, --certificate\n");
    })) << lWeb.getErr();
    EXPECT_EQ(lWeb.get("/api/v1/ports").mStatus, 503U);
}

TEST(WebLoop, TheManagerIsToldOfReadinessStateAndLife) {
    const ZTCWebStore lStore;
    const ZTCTestManager lManager(lStore.getDirectory() / "notify");
    ZTCWebRun lWeb(lStore.getPath(), {}, lManager.getEnvironment("100000"));
    EXPECT_TRUE(lManager.hears("READY=1"));
    EXPECT_TRUE(lManager.hears("WATCHDOG=1"));
    EXPECT_TRUE(lManager.hears("STATUS=0 connections, 0 follow; vrx-sn does not run"));
    lWeb.sendSignal(SIGHUP);
    EXPECT_TRUE(lManager.hears("RELOADING=1"));
    EXPECT_TRUE(lManager.hears("READY=1"));
    lWeb.sendSignal(SIGTERM);
    EXPECT_TRUE(lManager.hears("STOPPING=1"));
    EXPECT_EQ(lWeb.waitForEnd(), 0);
}

TEST(WebLoop, AnEndIsAtOnceWhateverIsUnderWay) {
    const SafeStand lSafe;
    ZTCWebRun lWeb(lSafe.mStore.getPath(), {"--token-file", lSafe.mDirectory / "tokens"},
                   {"ZT_TEST_WEB_PERIODS=token=600000"});
    ZTCWebClient lGuess(lWeb.getPort());
    ZTCWebClient lHalf(lWeb.getPort());
    ZTCWebClient lStream(lWeb.getPort());
    lGuess.send(ZTWebGet("/metrics", sNew));
    lHalf.send("GET / HT");
    lStream.send(ZTWebGet("/api/v1/stream", sOld));
    EXPECT_TRUE(lStream.readUntil("retry:"));
    EXPECT_EQ(lWeb.end(), 0);
    for (ZTCWebClient* const lpClient : {&lGuess, &lHalf, &lStream}) {
        EXPECT_TRUE(lpClient->waitForEnd());
    }
}

TEST(WebLoop, WhatKeepsItFromServingIsOneLineAndAStatus) {
    const SafeStand lStand;
    const ZTCWebRun lOther(lStand.mStore.getPath());
    const std::string lTaken = "127.0.0.1:" + std::to_string(lOther.getPort());
    writeFile(lStand.mDirectory / "empty", "");
    const std::string lKey = lStand.mDirectory / "key";
    const std::string lCertificate = lStand.mDirectory / "certificate";
    const std::string lEmpty = lStand.mDirectory / "empty";
    const std::pair<int, Words> lRows[] = {{1, {"--listen", lTaken}},
                                           {1, {"--listen", lStand.mDirectory / "none/web.sock"}},
                                           {2, {"--certificate", lEmpty, "--key", lKey}},
                                           {1, {"--certificate", lCertificate, "--key", lCertificate}},
                                           {2, {"--certificate", "/none", "--key", lKey}},
                                           {2, {"--certificate", lCertificate}},
                                           {2, {"--token-file", lEmpty}},
                                           {2, {"--token-file", lStand.mDirectory.getPath()}},
                                           {2, {"--config", "/none"}},
                                           {2, {"--listen", "nonsense"}},
                                           {2, {"--nonsense"}}};
    for (const auto& [lStatus, lrWords] : lRows) {
        Words lCommand{ZT_TEST_WEB, "--listen", "127.0.0.1:0"};
        lCommand.insert(lCommand.end(), lrWords.begin(), lrWords.end());
        const ZTSTestEnd lEnd = runChild(lCommand, Words{});
        EXPECT_EQ(lEnd.mStatus, lStatus) << lrWords[0] << ": " << lEnd.mErr;
        EXPECT_EQ(countIn(lEnd.mErr, "\n"), 1U) << lEnd.mErr;
    }
    EXPECT_TRUE(contains(runChild(Words{ZT_TEST_WEB, "--version"}, Words{}).mOut, "vrx-web v"));
}

}  // namespace
