// The host's ports, whatever sysfs holds.
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include "FailingAllocator.h"
#include "FcTree.h"
#include "HostPorts.h"

namespace {

using Attributes = std::map<std::string, std::string>;

const Attributes sLocal{{"port_state", "Online"},
                        {"speed", "16 Gbit"},
                        {"port_type", "NPort (fabric via point-to-point)"},
                        {"port_id", "0x010203"},
                        {"node_name", "0x2000000000000001"},
                        {"port_name", "0x1000000000000001"},
                        {"permanent_port_name", "0x1000000000000009"},
                        {"fabric_name", "0x1000000000000f01"}};
const Attributes sRemote{{"port_state", "Online"},
                         {"roles", "FCP Target"},
                         {"port_id", "0x010204"},
                         {"node_name", "0x5000000000000000"},
                         {"port_name", "0x5000000000000001"}};

Attributes with(Attributes aOnes, const Attributes& acrOthers) {
    for (const auto& [lrName, lrText] : acrOthers) {
        aOnes[lrName] = lrText;
    }
    return aOnes;
}

std::string idOf(const std::optional<std::uint32_t>& acrId) {
    return acrId ? fcDigits(*acrId) : "none";
}

std::string textOf(const ZTSHostPorts& acrPorts) {
    std::string lText;
    for (const ZTSLocalPort& lrPort : acrPorts.mLocal) {
        lText += lrPort.mHost + "," + lrPort.mState + "," + lrPort.mSpeed + "," + lrPort.mType + "," +
                 idOf(lrPort.mPortId) + "," + lrPort.mNames.mNode.toText().substr(21) + "," +
                 lrPort.mNames.mPort.toText().substr(21) + "," + lrPort.mFabric + "\n";
    }
    for (const ZTSRemotePort& lrPort : acrPorts.mRemote) {
        lText += " " + lrPort.mInitiator.toText().substr(21) + "," + lrPort.mState + "," + lrPort.mRoles +
                 "," + idOf(lrPort.mPortId) + "," + lrPort.mNames.mNode.toText().substr(21) + "," +
                 lrPort.mNames.mPort.toText().substr(21) + "," + lrPort.mFabric + "\n";
    }
    return lText;
}

const std::string sWhole =
    "host3,Online,16 Gbit,NPort (fabric via point-to-point),0x10203,01,01,10:00:00:00:00:00:0f:01\n"
    " 01,Online,FCP Target,0x10204,00,01,10:00:00:00:00:00:0f:01\n";

class HostPorts : public testing::Test {
  protected:
    HostPorts() {
        mTree.add("fc_host/host3", sLocal);
        mTree.add("fc_remote_ports/rport-3:0-1", sRemote);
    }
    std::string look() {
        mPorts.look();
        return textOf(mPorts.getPorts());
    }
    std::string lookAnew() const {
        ZTCHostPorts lPorts(mTree.getPath());
        lPorts.look();
        return textOf(lPorts.getPorts());
    }

    ZTCFcTestTree mTree{"sys/class/"};
    ZTCHostPorts mPorts{mTree.getPath()};
};

TEST_F(HostPorts, WhatIsNotKnownIsEmpty) {
    const ZTSTestEnd lEnd = runChild([this] {
        // Whom a mode keeps out. A leak check wants to look at the process all the same.
        std::filesystem::permissions(mTree.getPath(), std::filesystem::perms::all);
        EXPECT_EQ(look(), sWhole);
        const std::pair<std::string, std::vector<std::string>> lCases[] = {
            {"fc_host/host3/port_state", {"Online", ""}},
            {"fc_host/host3/speed", {"16 Gbit", ""}},
            {"fc_host/host3/port_type", {"NPort (fabric via point-to-point)", ""}},
            {"fc_host/host3/port_id", {"0x10203", "none"}},
            {"fc_host/host3/node_name", {",01,01,", ",00,01,"}},
            {"fc_host/host3/port_name", {",01,01,10:", ",01,09,10:", " 01,", " 09,"}},
            {"fc_remote_ports/rport-3:0-1/port_state", {" 01,Online", " 01,"}},
            {"fc_remote_ports/rport-3:0-1/roles", {"FCP Target", ""}},
            {"fc_remote_ports/rport-3:0-1/port_id", {"0x10204", "none"}}};
        for (const auto& [lrBelow, lrParts] : lCases) {
            std::string lExpected = sWhole;
            for (std::size_t lPart = 0; lPart < lrParts.size(); lPart += 2) {
                lExpected.replace(lExpected.find(lrParts[lPart]), lrParts[lPart].size(), lrParts[lPart + 1]);
            }
            const std::string lContent = readFile(mTree.pathOf(lrBelow));
            for (const auto& lrWay : fcBadWays()) {
                SCOPED_TRACE(lrBelow + " " + std::to_string(&lrWay - fcBadWays().data()));
                mTree.remove(lrBelow);
                lrWay(mTree.pathOf(lrBelow));
                EXPECT_EQ(lookAnew(), lExpected);
            }
            mTree.remove(lrBelow);
            writeFile(mTree.pathOf(lrBelow), lContent);
            EXPECT_EQ(lookAnew(), sWhole);
        }
    });
    EXPECT_EQ(lEnd.mStatus, 0) << lEnd.mOut;
}

TEST_F(HostPorts, AFabricIsASwitchesName) {
    const std::string lKnown = ",10:00:00:00:00:00:0f:01\n";
    const auto lIsKnown = [&](const std::string& acrText) { return countIn(acrText, lKnown) == 2; };
    for (const char* const lpNone : {"0x0", "0x0000000000000000", "0xffffffffffffffff", "0x1000000000000001",
                                     "0x2000000000000001", "none", ""}) {
        mTree.set("fc_host/host3/fabric_name", lpNone);
        EXPECT_FALSE(lIsKnown(look())) << lpNone;
    }
    mTree.set("fc_host/host3/fabric_name", "0x1000000000000f01");
    EXPECT_TRUE(lIsKnown(look()));
    // It is where it was as long as its link is down.
    mTree.set("fc_host/host3/port_state", "Linkdown");
    mTree.set("fc_host/host3/fabric_name", "0xffffffffffffffff");
    EXPECT_TRUE(lIsKnown(look()));
    mTree.set("fc_host/host3/port_state", "Online");
    EXPECT_FALSE(lIsKnown(look()));
}

TEST_F(HostPorts, WhatAPortIsMadeOfStaysKnown) {
    const auto lMakingOf = [](const ZTSHostPorts& acrPorts) {
        const ZTSLocalPort& lrPort = acrPorts.mLocal.at(0);
        return lrPort.mSymbolicName + "|" + lrPort.mModel + "|" + lrPort.mFirmware + "|" + lrPort.mDriver +
               "|" + std::to_string(acrPorts.mRemote.at(0).mDevLossTmo.value_or(0));
    };
    const auto lLook = [&](unsigned int aLooks = 61) {
        while (aLooks-- != 0) {
            mPorts.look();
        }
        return lMakingOf(mPorts.getPorts());
    };
    const std::pair<std::string, std::string> lMade[] = {{"scsi_host/host3/proc_name", "fcoe"},
                                                         {"fc_host/host3/symbolic_name", "fcoe over eth0"},
                                                         {"fc_host/host3/model", "M1"},
                                                         {"fc_host/host3/firmware_version", "1.0"},
                                                         {"fc_remote_ports/rport-3:0-1/dev_loss_tmo", "30"}};
    std::filesystem::create_directories(mTree.pathOf("scsi_host/host3"));
    mTree.set("fc_host/host3/driver_version", "0.1");
    for (const auto& [lrBelow, lrText] : lMade) {
        mTree.set(lrBelow, lrText);
    }
    const std::string lKnown = "fcoe over eth0|M1|1.0|fcoe 0.1|30";
    EXPECT_EQ(lLook(1), lKnown);
    for (const auto& [lrBelow, lrText] : lMade) {
        for (const auto& lrWay :
             {fcBadWays()[0], fcBadWays()[1], fcBadWays()[4], fcBadWays()[7], fcBadWays()[8]}) {
            mTree.remove(lrBelow);
            lrWay(mTree.pathOf(lrBelow));
            EXPECT_EQ(lLook(), lKnown) << lrBelow;
        }
        mTree.remove(lrBelow);
        mTree.set(lrBelow, lrText);
    }
    mTree.set("fc_host/host3/driver_name", "other");
    EXPECT_EQ(lLook(), "fcoe over eth0|M1|1.0|other 0.1|30");
    mTree.set("fc_host/host3/firmware_version", "1.1");
    mTree.set("fc_host/host3/port_state", "Linkdown");
    mTree.set("fc_remote_ports/rport-3:0-1/dev_loss_tmo", "60");
    EXPECT_EQ(lLook(1), "fcoe over eth0|M1|1.1|other 0.1|60");
    // It goes for another firmware: it comes back as it was, and has changed at the next look.
    mTree.remove("fc_host/host3");
    EXPECT_EQ(look(), "");
    mTree.add("fc_host/host3", with(sLocal, {{"firmware_version", "2.0"}, {"port_state", "Offline"}}));
    EXPECT_EQ(lLook(1), "fcoe over eth0|M1|1.1|other 0.1|60");
    EXPECT_EQ(lLook(1), "fcoe over eth0|M1|2.0|fcoe|60");
    mTree.set("scsi_host/host3/proc_name", "(null)");
    ZTCHostPorts lAnew(mTree.getPath());
    lAnew.look();
    EXPECT_EQ(lMakingOf(lAnew.getPorts()), "||2.0||60");
}

TEST_F(HostPorts, TheyComeAndGo) {
    EXPECT_TRUE(mPorts.look());
    EXPECT_FALSE(mPorts.look());
    // Others with their numbers: nothing is left of those before.
    mTree.add("fc_host/host3", {{"port_name", "0x1000000000000002"}});
    mTree.add("fc_remote_ports/rport-3:0-1", {{"port_name", "0x5000000000000002"}});
    EXPECT_EQ(look(), "host3,,,,none,00,02,\n 02,,,none,00,02,\n");
    mTree.add("fc_host/host3", sLocal);
    mTree.add("fc_remote_ports/rport-3:0-1", sRemote);
    EXPECT_EQ(look(), sWhole);
    // A name twice is told once, and what is online is believed.
    mTree.add("fc_host/host2", with(sLocal, {{"port_state", "Offline"}}));
    mTree.add("fc_remote_ports/rport-2:0-0", sRemote);
    mTree.add("fc_remote_ports/rport-3:0-0", with(sRemote, {{"port_state", "Not Present"}}));
    mTree.add("fc_remote_ports/rport-7:0-0", sRemote);
    for (const char* const lpOther : {"host", "host3x", "hostx", "host99999999999"}) {
        mTree.add(std::string("fc_host/") + lpOther, sLocal);
    }
    EXPECT_EQ(look(), sWhole);
    mTree.remove("fc_remote_ports/rport-3:0-1");
    EXPECT_TRUE(contains(look(), " 01,Not Present"));
    mTree.remove("fc_host/host3");
    EXPECT_TRUE(contains(look(), "host2,Offline"));
    std::filesystem::remove_all(mTree.pathOf(""));
    EXPECT_EQ(look(), "");
}

TEST_F(HostPorts, ARemotePortIsReadInARoundAndWhenItsHostChanges) {
    for (unsigned int lPort = 0; lPort < 400; ++lPort) {
        mTree.add("fc_remote_ports/rport-3:0-" + std::to_string(lPort),
                  with(sRemote, {{"port_name", fcDigits(0x5000000000000000 + lPort)}}));
    }
    const auto lCount = [&](const char* apState) {
        return countIn(look(), std::string(",") + apState + ",FCP");
    };
    const auto lSet = [&](const char* apState) {
        for (unsigned int lPort = 0; lPort < 400; ++lPort) {
            mTree.set("fc_remote_ports/rport-3:0-" + std::to_string(lPort) + "/port_state", apState);
        }
    };
    EXPECT_EQ(lCount("Online"), 400U);
    for (unsigned int lLook = 0; lLook < 60; ++lLook) {
        mPorts.look();  // until nothing is due
    }
    lSet("Blocked");
    std::size_t lSeen = 0;
    for (unsigned int lLook = 0; lLook < 60; ++lLook) {
        const std::size_t lNow = lCount("Blocked");
        EXPECT_LE(lNow, lSeen + 10);
        lSeen = lNow;
    }
    EXPECT_EQ(lSeen, 400U);
    lSet("Online");
    mTree.set("fc_host/host3/port_id", "0x010209");
    EXPECT_GE(lCount("Online"), 256U);
    EXPECT_EQ(lCount("Online"), 400U);
}

TEST_F(HostPorts, TooManyAreLeftOut) {
    for (std::size_t lPort = 0; lPort < ZTCHostPorts::MostLocal + 5; ++lPort) {
        std::filesystem::create_directories(mTree.pathOf("fc_host/host" + std::to_string(10 + lPort)));
    }
    for (std::size_t lPort = 0; lPort < ZTCHostPorts::MostRemote; ++lPort) {
        std::filesystem::create_directories(
            mTree.pathOf("fc_remote_ports/rport-3:1-" + std::to_string(lPort)));
    }
    mPorts.look();
    EXPECT_EQ(mPorts.getLeftOut(), 7U);
}

TEST_F(HostPorts, ShortOfAnythingNothingHasGone) {
    EXPECT_EQ(look(), sWhole);
    for (unsigned int lFailing = 1;; ++lFailing) {
        mTree.set("fc_host/host3/speed", lFailing % 2 == 0 ? "16 Gbit" : "8 Gbit");
        FailingAllocator lAllocator(lFailing);
        try {
            mPorts.look();
        } catch (const std::bad_alloc&) {
        }
        lAllocator.stop();
        EXPECT_EQ(mPorts.getPorts().mRemote.size(), 1U);
        if (!lAllocator.hasFailed()) {
            break;
        }
    }
    mTree.set("fc_host/host3/speed", "16 Gbit");
    EXPECT_EQ(look(), sWhole);
    const ZTSTestEnd lEnd = runChild([this] {
        rlimit lUsual{};
        getrlimit(RLIMIT_NOFILE, &lUsual);
        const rlimit lNone{0, lUsual.rlim_max};
        mTree.set("fc_remote_ports/rport-3:0-1/port_state", "Blocked");
        EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &lNone), 0);
        for (unsigned int lLook = 0; lLook < 60; ++lLook) {
            EXPECT_EQ(look(), sWhole);
        }
        setrlimit(RLIMIT_NOFILE, &lUsual);  // a sanitizer opens files at the end
    });
    EXPECT_EQ(lEnd.mStatus, 0) << lEnd.mOut;
}

}  // namespace
