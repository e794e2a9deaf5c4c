#include "TestSupport.h"
#include "WebOptions.h"

namespace {

using Words = std::vector<std::string>;

std::string refusalOf(const std::string& acrConfig, const Words& acrWords = {}) {
    try {
        parseWebOptions(acrWords, acrConfig);
        return "";
    } catch (const ZTCServiceUsage& lrError) {
        return lrError.what();
    }
}

TEST(WebOptions, LinesOfTheConfigurationAreTakenWhereTheCommandLineSaysNothing) {
    const std::string lConfig =
        "store = /of/file\nlisten = 127.0.0.1:1\nlisten = \"[::1]:2\"\nlisten=/run/web.sock\n"
        "allow-host = a.example\nallow-host = b.example\nfigures=/f\n";
    const ZTSWebOptions lOptions = parseWebOptions({"--store=/of/line"}, lConfig);
    EXPECT_EQ(lOptions.mStore, "/of/line");
    EXPECT_EQ(lOptions.mListen, (Words{"127.0.0.1:1", "[::1]:2", "/run/web.sock"}));
    EXPECT_EQ(lOptions.mAllowHosts, (Words{"a.example", "b.example"}));
    EXPECT_EQ(lOptions.mFigures, "/f");
    EXPECT_EQ(parseWebOptions({"--listen", "0.0.0.0:3"}, lConfig).mListen, Words{"0.0.0.0:3"});

    const ZTSWebOptions lPlain = parseWebOptions({}, "");
    EXPECT_EQ(lPlain.mListen, Words{"127.0.0.1:9180"});
    EXPECT_EQ(lPlain.mStore, "/var/lib/vrx-sn/history.db");
    EXPECT_EQ(lPlain.mFigures, "/run/vrx-sn");
    EXPECT_EQ(lPlain.mTokenFile + lPlain.mCertificate + lPlain.mKey, "");
}

TEST(WebOptions, WhatCannotBeUsedIsOneLine) {
    std::string lMany;
    for (int lPort = 1; lPort <= 17; ++lPort) {
        lMany += "listen=127.0.0.1:" + std::to_string(lPort) + "\n";
    }
    const std::string lBad[] = {"listen=9180",
                                "listen=:9180",
                                "listen=*:9180",
                                "listen=127.0.0.1",
                                "listen=127.0.0.1:65536",
                                "listen=127.0.0.1:-1",
                                "listen=127.0.0.1:http",
                                "listen=::1:9180",
                                "listen=[::1]",
                                "listen=host.example:9180",
                                "listen=",
                                "listen=/" + std::string(200, 'a'),
                                "allow-host=a b",
                                "allow-host=",
                                "store=",
                                "certificate=/c",
                                "key=/k",
                                "unknown=1",
                                "store=/a\nstore=/b",
                                lMany};
    for (const std::string& lrBad : lBad) {
        const std::string lWhy = refusalOf(lrBad);
        EXPECT_NE(lWhy, "") << lrBad;
        EXPECT_EQ(lWhy.find('\n'), std::string::npos) << lWhy;
    }
    EXPECT_EQ(refusalOf("certificate=/c\nkey=/k"), "");
    EXPECT_NE(refusalOf("", {"--listen", "x"}), "");
    EXPECT_THROW(parseWebOptions({"--help"}, ""), ZTCServiceShown);
}

TEST(WebOptions, WhatANewStartIsNeededForIsToldByName) {
    const ZTSWebOptions lBefore = parseWebOptions({}, "");
    EXPECT_EQ(listFixedChanges(lBefore, parseWebOptions({}, "token-file=/t\nallow-host=a")), "");
    EXPECT_EQ(listFixedChanges(lBefore, parseWebOptions({},
                                                        "store=/s\nlisten=127.0.0.1:1\nfigures=/f\n"
                                                        "certificate=/c\nkey=/k")),
              "--store, --listen, --figures, --certificate");
    const ZTSWebOptions lSecure = parseWebOptions({}, "certificate=/c\nkey=/k");
    EXPECT_EQ(listFixedChanges(lSecure, parseWebOptions({}, "certificate=/d\nkey=/l")), "");
}

}  // namespace
