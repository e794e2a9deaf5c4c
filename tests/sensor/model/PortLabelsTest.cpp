// The names file, and what has become of ports.
#include "PortChanges.h"
#include "PortLabels.h"
#include "TestSupport.h"

namespace {

const std::string sPort = "50:06:01:60:3b:20:1a:2f";

TEST(PortLabels, ALineIsAPort) {
    const ZTSNamesFile lFile = readPortLabels(
        "\xef\xbb\xbf# the ports of a site\r\n\n"
        "  50:06:01:60:3b:20:1a:2f  array1-A0\tarray=array1 controller=A fabric=left switch=\"sw 3/14\" # here\r\n"
        "0x500601603b201a30 \"a name # with 'all' <b>of it</b>\"#\n"
        "500601603B201A31 h\xc3\xb6he=\n"
        "500601603B201A32 fabric=left\n"
        "500601603B201A33 last");
    EXPECT_EQ(lFile.mLabels,
              (ZTPortLabels{{*ZTSWwn::fromText(sPort), {"array1-A0", "array1", "A", "left", "sw 3/14"}},
                            {*ZTSWwn::fromText("500601603b201a30"),
                             {"a name # with 'all' <b>of it</b>", "", "", "", ""}},
                            {*ZTSWwn::fromText("500601603b201a33"), {"last", "", "", "", ""}}}));
    ASSERT_EQ(lFile.mMistakes.size(), 2U);
    EXPECT_EQ(lFile.mMistakes[0].mLine, 5U);
    EXPECT_EQ(lFile.mMistakes[1].mLine, 6U);
}

TEST(PortLabels, AMistakeCostsItsLine) {
    const std::string lLongest(ZTLongestLabel, 'x');
    const std::string lMistakes[][2] = {
        {"array1-A0 " + sPort, "'array1-A0' is not a port's world wide name"},
        {sPort + "0 x", "is not a port's world wide name"},
        {"name=" + sPort + " x", "'name' is not a port's world wide name"},
        {sPort, "no name stands behind the port"},
        {sPort + " # x", "no name stands behind the port"},
        {sPort + " array=x", "no name stands behind the port"},
        {sPort + " \"\"", "a word is empty"},
        {sPort + " x array=", "a word is empty"},
        {sPort + " x =y", "nothing stands before a '='"},
        {sPort + " \"x", "a quote is not closed"},
        {sPort + " \"x\"y", "no blank behind 'x'"},
        {sPort + " x\"y\"", "no blank behind 'x'"},
        {sPort + " x y", "'y' is one word too many: quote a name with blanks"},
        {sPort + " x colour=red", "'colour' is none of array, controller, fabric, switch"},
        {sPort + " x array=a array=a", "array stands there twice"},
        {sPort + " x" + lLongest, "is longer than 64 bytes"},
        {sPort + " \x1b[1m", "'\\x1b[1m' holds what cannot be shown"},
        {sPort + " x\xff", "'x\\xff' holds what cannot be shown"},
        {sPort + std::string(" x\0y", 4), "'x\\x00y' holds what cannot be shown"},
        {sPort + " 0x500601603b201a2f", "is a world wide name, not what people call one"},
        {"500601603b201a30 other", "50:06:01:60:3b:20:1a:30 has a name already"},
        {sPort + " first", "'first' is the port's of line 1"}};
    for (const auto& [lrLine, lrExpected] : lMistakes) {
        const ZTSNamesFile lFile =
            readPortLabels("500601603b201a30 first\n" + lrLine + "\n500601603b201a31 " + lLongest + "\n");
        ASSERT_EQ(lFile.mMistakes.size(), 1U) << lrLine;
        EXPECT_EQ(lFile.mMistakes[0].mLine, 2U);
        EXPECT_PRED2(contains, lFile.mMistakes[0].mText, lrExpected);
        EXPECT_EQ(lFile.mLabels.size(), 2U) << lrLine;
    }
}

TEST(PortLabels, ThereAreLimits) {
    std::string lMany;
    for (std::size_t lAt = 0; lAt < ZTMostLabels + 30; ++lAt) {
        lMany +=
            ZTSWwn{{1, 0, 0, 0, 0, 0, static_cast<std::uint8_t>(lAt >> 8), static_cast<std::uint8_t>(lAt)}}
                .toText() +
            " port" + std::to_string(lAt) + "\n";
    }
    const ZTSNamesFile lFile = readPortLabels(lMany);
    EXPECT_EQ(lFile.mLabels.size(), ZTMostLabels);
    EXPECT_EQ(lFile.mMistakes.size(), ZTMostNamesMistakes);
    EXPECT_EQ(lFile.mMoreMistakes, 10U);
}

TEST(PortChanges, EachIsARow) {
    const ZTSWwn lPorts[] = {*ZTSWwn::fromText("1000000000000001"), *ZTSWwn::fromText("1000000000000002"),
                             *ZTSWwn::fromText("5000000000000001")};
    const ZTSLocalPort lLocal{{{}, lPorts[0]}, "host3", "Online", "16 Gbit", "NPort", 0x010203, "left"};
    const ZTSRemotePort lRemote{lPorts[0], {{}, lPorts[2]}, "Online", "FCP Target", 0x010204, "left"};
    const auto lTextOf = [](const ZTSHostPorts& acrBefore, const ZTSHostPorts& acrAfter) {
        std::string lText;
        for (const ZTSChange& lrChange : listPortChanges(acrBefore, acrAfter, 5)) {
            EXPECT_EQ(lrChange.mTime, 5);
            lText += lrChange.mWhat + " " + lrChange.mName.substr(22) + " " + lrChange.mEvent + " " +
                     lrChange.mAttribute + ": " + lrChange.mBefore + " > " + lrChange.mAfter + "\n";
        }
        return lText;
    };
    const ZTSHostPorts lBefore{{lLocal}, {lRemote}};
    EXPECT_EQ(lTextOf(lBefore, lBefore), "");
    ZTSHostPorts lAfter = lBefore;
    lAfter.mLocal[0].mState = "Linkdown";
    lAfter.mLocal[0].mSpeed = "";
    lAfter.mLocal[0].mPortId.reset();
    lAfter.mLocal[0].mFabric = "right";
    lAfter.mRemote[0] = {lPorts[0], {{}, lPorts[2]}, "Blocked", "", 0x010205, "right"};
    EXPECT_EQ(lTextOf(lBefore, lAfter),
              "port 1 changed state: Online > Linkdown\n"
              "port 1 changed speed: 16 Gbit > \n"
              "port 1 changed port_id: 0x010203 > \n"
              "port 1 changed fabric: left > right\n"
              "remote_port 1 seen from 10:00:00:00:00:00:00:01 changed state: Online > Blocked\n"
              "remote_port 1 seen from 10:00:00:00:00:00:00:01 changed port_id: 0x010204 > 0x010205\n");
    // What is not known, as an older store does not, has not changed.
    const auto lMade = [&](const char* apFirmware, const char* apDriver, std::optional<std::uint32_t> aTmo) {
        ZTSHostPorts lOnes = lBefore;
        lOnes.mLocal[0].mFirmware = apFirmware;
        lOnes.mLocal[0].mDriver = apDriver;
        lOnes.mRemote[0].mDevLossTmo = aTmo;
        return lOnes;
    };
    EXPECT_EQ(lTextOf(lBefore, lMade("1.0", "fcoe", 30)), "");
    EXPECT_EQ(lTextOf(lMade("1.0", "fcoe", 30), lBefore), "");
    EXPECT_EQ(lTextOf(lMade("1.0", "fcoe", 30), lMade("2.0", "fcoe 0.1", 60)),
              "port 1 changed firmware: 1.0 > 2.0\n"
              "port 1 changed driver: fcoe > fcoe 0.1\n"
              "remote_port 1 seen from 10:00:00:00:00:00:00:01 changed dev_loss_tmo: 30 > 60\n");
    lAfter = lBefore;
    lAfter.mLocal[0].mNames.mPort = lPorts[1];
    lAfter.mRemote[0].mInitiator = lPorts[1];
    EXPECT_EQ(lTextOf(lBefore, lAfter),
              "port 1 went : Online > \n"
              "port 2 came :  > Online\n"
              "remote_port 1 seen from 10:00:00:00:00:00:00:01 went : Online > \n"
              "remote_port 1 seen from 10:00:00:00:00:00:00:02 came :  > Online\n");
}

}  // namespace
