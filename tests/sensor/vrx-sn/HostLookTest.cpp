// The look at the host's ports, beside drivers and disks that do not answer.
#include <sys/socket.h>
#include <sys/un.h>

#include "FcTree.h"
#include "HostLook.h"
#include "KernelBytes.h"
#include "ServiceLog.h"
#include "SnBuffer.h"
#include "StandingWrites.h"

namespace {

const std::string sPort = "10:00:00:00:00:00:00:01";
const std::string sAgents = "10:00:00:00:00:00:00:09";
const std::string sTarget = "50:00:00:00:00:00:00:01";

class HostLook : public testing::Test {
  protected:
    HostLook() {
        addHost("Online");
        mTree.add("fc_remote_ports/rport-3:0-0",
                  {{"port_name", "0x5000000000000001"}, {"port_state", "Online"}, {"roles", "FCP Target"}});
    }
    ~HostLook() override { ZTSetReadsStand(nullptr); }

    void addHost(const std::string& acrState) {
        mTree.add("fc_host/host3", {{"port_name", "0x1000000000000001"},
                                    {"port_state", acrState},
                                    {"fabric_name", "0x1000000000000f01"}});
    }
    void start() { mLook.emplace(mTree.getPath(), mNames, mBuffer, mLog); }
    std::string getFabric() const {
        return std::string(mLook->getPorts()->fabricOf(*ZTSWwn::fromText(sPort)));
    }
    // What the buffer was told since it was asked last.
    ZTSStoreBatch detach() {
        ZTSStoreBatch lBatch = mBuffer.detach(1);
        mBuffer.stored();
        return lBatch;
    }
    std::string waitForChanges(const std::string& acrLast) {
        std::string lText;
        EXPECT_TRUE(waitUntil([&] {
            for (const ZTSChange& lrChange : detach().mChanges) {
                lText += lrChange.mWhat + " " + lrChange.mEvent + " " + lrChange.mAttribute + ": " +
                         lrChange.mBefore + " > " + lrChange.mAfter + "\n";
            }
            return contains(lText, acrLast);
        })) << lText;
        return lText;
    }

    ZTCFcTestTree mTree{"sys/class/"};
    const std::string mNames = mTree.getPath() + "/names";
    ZTCSnBuffer mBuffer{{}};
    ZTCServiceLog mLog{"vrx-sn"};
    std::optional<ZTCHostLook> mLook;
};

TEST_F(HostLook, TellsWhatHasChangedAndNothingElse) {
    writeFile(mNames, sTarget + " array1-A0\nthis is a mistake\n");
    testing::internal::CaptureStderr();
    start();
    EXPECT_EQ(getFabric(), "10:00:00:00:00:00:0f:01");
    ZTSStoreBatch lFirst = detach();
    EXPECT_EQ(lFirst.mPorts, *mLook->getPorts());
    EXPECT_EQ(lFirst.mPorts->mRemote.at(0).mFabric, "10:00:00:00:00:00:0f:01");
    EXPECT_EQ(lFirst.mLabels->at(*ZTSWwn::fromText(sTarget)).mName, "array1-A0");
    EXPECT_TRUE(lFirst.mChanges.empty());  // what was there before has not come
    mTree.set("fc_host/host3/port_state", "Linkdown");
    EXPECT_EQ(waitForChanges("port"), "port changed state: Online > Linkdown\n");
    // The fabric's own name, from now on.
    writeFile(mNames, sPort + " hba0 fabric=left\n" + sTarget + " array1-A0\n");
    mLook->reload(mNames);
    EXPECT_EQ(waitForChanges("fabric"), "port changed fabric: 10:00:00:00:00:00:0f:01 > left\n");
    EXPECT_EQ(mLook->getPorts()->mRemote.at(0).mFabric, "left");
    // It stays when the file has gone; no file is none.
    mLook->reload(mNames + "-not-there");
    mLook->reload(mNames);
    mTree.remove("fc_remote_ports/rport-3:0-0");
    EXPECT_EQ(waitForChanges("went"), "remote_port went : Online > \n");
    EXPECT_EQ(getFabric(), "left");
    mLook->reload("");
    EXPECT_EQ(waitForChanges("fabric"), "port changed fabric: left > 10:00:00:00:00:00:0f:01\n");
    mLook.reset();
    const std::string lLog = testing::internal::GetCapturedStderr();
    EXPECT_PRED2(contains, lLog, mNames + ":2: 'this' is not a port's world wide name");
    EXPECT_PRED2(contains, lLog, mNames + ": ports named: 1");
}

TEST_F(HostLook, ADriverThatDoesNotAnswerHoldsUpNobody) {
    ZTSetReadsStand("/host3/");
    start();
    EXPECT_TRUE(ZTIsAReadStanding());
    EXPECT_TRUE(mLook->getPorts()->mLocal.empty());
    ZTSetReadsStand(nullptr);
    EXPECT_TRUE(waitUntil([this] { return mLook->getPorts()->mLocal.size() == 1; }));
    ZTSetReadsStand("/host3/");
    EXPECT_TRUE(waitUntil(ZTIsAReadStanding));
    EXPECT_EQ(mLook->getPorts()->mLocal.size(), 1U);
    mLook.reset();
    EXPECT_TRUE(ZTIsAReadStanding());
    ZTSetReadsStand(nullptr);  // it comes out behind the end, and touches nothing
    EXPECT_TRUE(waitUntil([] { return !ZTIsAReadStanding(); }));
}

// They are part of the names of LUNs: these would come once more under other ones.
TEST_F(HostLook, LunsAreToldWhenThePortsAreKnown) {
    const std::string lRoot = mTree.getPath();
    for (const char* const lpFolder : {"/sys/block", "/sys/bus/scsi/devices/3:0:0:1", "/proc/1"}) {
        std::filesystem::create_directories(lRoot + lpFolder);
    }
    writeFile(lRoot + "/sys/bus/scsi/devices/3:0:0:1/state", "running\n");
    writeFile(lRoot + "/proc/1/mountinfo", "");
    ZTSetReadsStand("/fc_host/host3/");
    start();
    EXPECT_TRUE(waitUntil([this] { return mLook->getSummary().mLongestSlice.count() != 0; }));
    ZTSetReadsStand(nullptr);
    std::optional<ZTSHostStorage> lStorage;
    EXPECT_TRUE(waitUntil([&] { return (lStorage = detach().mHost.mStorage).has_value(); }));
    EXPECT_EQ(lStorage->mLuns.at(0).mInitiator.toText(), sPort);
}

// It may answer for all but its counters, and for these it is asked by the thread of the ports alone.
TEST_F(HostLook, ADriverThatHangsInItsCountersKeepsNeitherFpinsNorNames) {
    std::filesystem::create_directory(mTree.pathOf("fc_host/host3/statistics"));
    mTree.set("fc_host/host3/statistics/invalid_crc_count", "0x5");
    ZTSetReadsStand("/statistics/");
    start();
    EXPECT_TRUE(waitUntil(ZTIsAReadStanding));
    EXPECT_EQ(mLook->getPorts()->mRemote.size(), 1U);
    writeFile(mNames, sPort + " hba0 fabric=left\n");
    mLook->reload(mNames);
    EXPECT_EQ(waitForChanges("fabric"), "port changed fabric: 10:00:00:00:00:00:0f:01 > left\n");
    const ZTCDescriptor lSocket(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sockaddr_un lAddress{AF_UNIX, {}};
    (mTree.getPath() + "/run/kernel/transport").copy(lAddress.sun_path, sizeof lAddress.sun_path - 1);
    const std::string lMessage = fcMessage(3, 1, 0x501, fcEls(FcEach[3]));
    EXPECT_TRUE(waitUntil([&] {  // once it listens
        return sendto(lSocket.get(), lMessage.data(), lMessage.size(), 0,
                      reinterpret_cast<const sockaddr*>(&lAddress), sizeof lAddress) > 0;
    }));
    std::vector<ZTSFpin> lFpins;
    EXPECT_TRUE(waitUntil([&] { return !(lFpins = detach().mHost.mFpins).empty(); }));
    EXPECT_EQ(lFpins.at(0).mFabric + " " + lFpins.at(0).mDescriptor, "left congestion");
    EXPECT_TRUE(ZTIsAReadStanding());
}

// A minute is not waited for.
TEST_F(HostLook, ADriverThatHangsIsToldOfOnceWhileItDoes) {
    testing::internal::CaptureStderr();
    start();
    ZTSetReadsStand("/host3/");
    EXPECT_TRUE(waitUntil(ZTIsAReadStanding));
    for (const int lSeconds : {1, 62, 63, 64}) {
        mLook->tellTrouble(std::chrono::steady_clock::now() + std::chrono::seconds(lSeconds));
    }
    ZTSetReadsStand(nullptr);
    EXPECT_TRUE(waitUntil([] { return !ZTIsAReadStanding(); }));
    mLook.reset();
    const std::string lLog = testing::internal::GetCapturedStderr();
    EXPECT_EQ(countIn(lLog, "the host's ports cannot be seen: a driver has not answered for 6"), 1U) << lLog;
}

TEST_F(HostLook, WhatOnlyTheAgentTellsOfIsAPort) {
    writeFile(mNames, sAgents + " hba9 fabric=right\n");
    start();
    mLook->setStart({});
    const auto lNamesOf = [](const std::string& acrPort) {
        return ZTSPortNames{*ZTSWwn::fromText("20:00:00:00:00:00:00:01"), *ZTSWwn::fromText(acrPort)};
    };
    mLook->seeAgent({lNamesOf(sAgents), lNamesOf(sPort), lNamesOf(sAgents)});
    EXPECT_EQ(mLook->getPorts()->mLocal.size(), 2U);
    EXPECT_EQ(mLook->getPorts()->fabricOf(*ZTSWwn::fromText(sAgents)), "right");
    EXPECT_EQ(waitForChanges("came"), "port came :  > \n");
    // A host's port has gone when the host has it no longer, whatever an agent keeps telling.
    mTree.remove("fc_host/host3");
    EXPECT_TRUE(contains(waitForChanges("port went"), "port went : Online > \n"));
    EXPECT_EQ(mLook->getPorts()->mLocal.size(), 1U);
    mLook->seeAgent({lNamesOf(sPort)});
    EXPECT_EQ(waitForChanges("went"), "port went :  > \n");
    EXPECT_TRUE(mLook->getPorts()->mLocal.empty());
}

// Whether the store is open before the agent answers, or only behind that.
TEST_F(HostLook, WhatBecameOfPortsMeanwhileIsToldWithTheTimeOfTheLook) {
    const auto lNames = [](const char* apPort) {
        return ZTSPortNames{{}, *ZTSWwn::fromText(std::string("10:00:00:00:00:00:00:") + apPort)};
    };
    ZTSStoreStart lStart;
    lStart.mPorts.emplace();
    lStart.mPorts->mLocal = {{lNames("01"), "host3", "Linkdown", "", "", {}, "10:00:00:00:00:00:0f:01"},
                             {lNames("02"), "host4", "Online", "", "", {}, ""},
                             {lNames("03"), "", "", "", "", {}, ""},
                             {lNames("04"), "", "", "", "", {}, ""}};
    for (const bool lIsLate : {false, true}) {
        start();
        const ZTNanoseconds lLooked =
            std::chrono::nanoseconds(std::chrono::system_clock::now().time_since_epoch()).count();
        if (!lIsLate) {
            mLook->setStart(lStart);
            EXPECT_EQ(mLook->getPorts()->mLocal.size(), 3U);  // what only the agent knows has not gone yet
        }
        mLook->seeAgent({lNames("03"), lNames("05")});
        if (lIsLate) {
            mLook->setStart(lStart);
        }
        std::map<std::string, unsigned int> lChanges;
        for (const ZTSChange& lrChange : detach().mChanges) {
            ++lChanges[lrChange.mName.substr(21, 2) + " " + lrChange.mEvent + " " + lrChange.mBefore];
            EXPECT_TRUE(lrChange.mTime <= lLooked || !lIsLate);
        }
        const std::map<std::string, unsigned int> lWanted{{"01 changed Linkdown", 1},
                                                          {"02 went Online", 1},
                                                          {"04 went ", 1},
                                                          {"05 came ", 1},
                                                          {"01 came ", 1}};  // the remote port
        EXPECT_EQ(lChanges, lWanted) << lIsLate;
        EXPECT_EQ(mLook->getPorts()->mLocal.size(), 3U);
    }
}

TEST_F(HostLook, ANamesFileOnADiskThatStandsHoldsUpNobody) {
    writeFile(mNames, sPort + " hba0 fabric=left\n");
    ZTSetReadsStand("/names");
    start();
    EXPECT_TRUE(ZTIsAReadStanding());
    EXPECT_EQ(getFabric(), "10:00:00:00:00:00:0f:01");
    addHost("Linkdown");
    mLook->reload(mNames);
    EXPECT_TRUE(contains(waitForChanges("Linkdown"), "state: Online > Linkdown"));
    ZTSetReadsStand(nullptr);
    EXPECT_EQ(waitForChanges("fabric"), "port changed fabric: 10:00:00:00:00:00:0f:01 > left\n");
}

TEST_F(HostLook, WhatIsNoNamesFileIsSaidAndLeft) {
    testing::internal::CaptureStderr();
    const std::string lLong = mTree.getPath() + "/long";
    writeFile(lLong, "#");
    std::filesystem::resize_file(lLong, 5 << 20);
    const std::string lPipe = mTree.getPath() + "/pipe";
    mkfifo(lPipe.c_str(), 0600);
    for (const std::string& lrFile : {lLong, lPipe, mTree.getPath()}) {
        ZTCHostLook(mTree.getPath(), lrFile, mBuffer, mLog);
    }
    EXPECT_FALSE(detach().mLabels);  // those that the store has stay
    const std::string lLog = testing::internal::GetCapturedStderr();
    EXPECT_EQ(countIn(lLog, "cannot be read: it is not a file"), 2U) << lLog;
    EXPECT_EQ(countIn(lLog, "cannot be read: it is longer than 4 MiB"), 1U) << lLog;
}

// All three at once: neither is waited for by another, by a reader of what is known, or at the end for long.
TEST_F(HostLook, ThreadsThatAreKeptHoldUpNobody) {
    writeFile(mNames, sPort + " hba0 fabric=left\n");
    std::filesystem::create_directories(mTree.getPath() + "/proc");
    writeFile(mTree.getPath() + "/proc/diskstats", "8 0 sda 1 0 8 1 1 0 8 1 0 1 1 0 0 0 0 0 0\n");
    start();
    ZTSetReadsStand(mTree.getPath().c_str());
    mLook->reload(mNames);
    testing::internal::CaptureStderr();
    const auto lFar = std::chrono::steady_clock::now() + std::chrono::minutes(2);
    std::string lLog;
    EXPECT_TRUE(waitUntil([&] {
        mLook->tellTrouble(lFar);
        lLog += testing::internal::GetCapturedStderr();
        testing::internal::CaptureStderr();
        return contains(lLog, "the host's ports cannot be seen") && contains(lLog, "LUNs and paths cannot") &&
               contains(lLog, "names and multipath's configuration cannot");
    })) << lLog;
    EXPECT_EQ(getFabric(), "left");
    mLook->setStart({});
    mLook->seeAgent({{{}, *ZTSWwn::fromText(sAgents)}});
    EXPECT_EQ(mLook->getPorts()->mLocal.size(), 2U);
    const auto lBegan = std::chrono::steady_clock::now();
    mLook.reset();
    EXPECT_LT(std::chrono::steady_clock::now() - lBegan, std::chrono::seconds(3));
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(countIn(lLog, "cannot be"), 3U) << lLog;  // each once
    EXPECT_TRUE(ZTIsAReadStanding());
    ZTSetReadsStand(nullptr);
    EXPECT_TRUE(waitUntil([] { return !ZTIsAReadStanding(); }));
}

// What nobody finishes is read all the same, as far as it is right.
TEST_F(HostLook, ANamesFileThatIsBeingWrittenIsWaitedForAMoment) {
    writeFile(mNames, sPort + " hba0 fabric=left\n" + sTarget + " array1-A0\n");
    start();
    detach();
    testing::internal::CaptureStderr();
    writeFile(mNames, sPort + " hba0 fabric=le");
    mLook->reload(mNames);
    writeFile(mNames, sPort + " hba0 fabric=left\n" + sTarget + " array1-A1\n");
    std::optional<ZTPortLabels> lLabels;
    EXPECT_TRUE(waitUntil([&] { return (lLabels = detach().mLabels).has_value(); }));
    EXPECT_EQ(lLabels->size(), 2U);
    EXPECT_EQ(getFabric(), "left");
    writeFile(mNames, sPort + " hba0 fabric=left\n" + sTarget + " array1-A0 arr=\n50:06\n");
    mLook->reload(mNames);
    EXPECT_TRUE(waitUntil([&] { return (lLabels = detach().mLabels).has_value(); }));
    EXPECT_EQ(lLabels->size(), 1U);
    mLook.reset();
    const std::string lLog = testing::internal::GetCapturedStderr();
    EXPECT_EQ(countIn(lLog, mNames + ":2: "), 1U) << lLog;
    EXPECT_EQ(countIn(lLog, mNames + ":3: "), 1U) << lLog;
    EXPECT_EQ(countIn(lLog, "fabric=le "), 0U) << lLog;
}

}  // namespace
