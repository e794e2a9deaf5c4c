// What sysfs holds, and what is in its place.
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include "FailingAllocator.h"
#include "FcTest.h"
#include "Sysfs.h"
#include "Watcher.h"

namespace {

std::optional<ZTFcHosts> readFcHosts(const std::string& acrRoot) {
    return ZTCFcSysfs(acrRoot).look();
}

std::string textOf(const std::optional<std::uint64_t>& acrNumber) {
    return acrNumber ? fcDigits(*acrNumber) : "none";
}

// Each value of host 3 and its remote port, by the attribute's path.
std::map<std::string, std::string> valuesOf(const std::optional<ZTFcHosts>& acrHosts) {
    const ZTSFcHost& lrHost = acrHosts.value().at(3);
    const ZTSFcRemotePort& lrPort = lrHost.mRemotePorts.at("rport-3:0-1");
    const std::string lHost = "fc_host/host3/";
    const std::string lPort = "fc_remote_ports/rport-3:0-1/";
    std::map<std::string, std::string> lValues{{lHost + "port_state", lrHost.mState},
                                               {lHost + "node_name", textOf(lrHost.mNode)},
                                               {lHost + "port_name", textOf(lrHost.mPort)},
                                               {lPort + "port_id", textOf(lrPort.mPortId)},
                                               {lPort + "port_state", lrPort.mState}};
    for (std::size_t lAt = 0; lAt < lrHost.mCounters.size(); ++lAt) {
        lValues[lHost + ZTFcCounters[lAt]] = textOf(lrHost.mCounters[lAt]);
    }
    return lValues;
}

TEST(FcSysfs, AnyAttributeMayBeAnything) {
    const ZTSTestEnd lEnd = runChild([] {
        // Whom a mode keeps out. A leak check wants to look at the process all the same.
        EXPECT_TRUE(geteuid() != 0 ||
                    (setresuid(65534, 65534, 65534) == 0 && prctl(PR_SET_DUMPABLE, 1) == 0));
        const ZTCFcTestTree lTree;
        std::map<std::string, std::string> lAttributes{
            {"port_state", "Online"}, {"node_name", "0x10"}, {"port_name", "0x2000000000000001"}};
        for (const char* const lpCounter : ZTFcCounters) {
            lAttributes[lpCounter] = fcDigits(0x100 + lAttributes.size());
        }
        lTree.add("fc_host/host3", lAttributes);
        lTree.add("fc_remote_ports/rport-3:0-1", {{"port_id", "0x010203"}, {"port_state", "Blocked"}});
        const auto lWhole = valuesOf(readFcHosts(lTree.getPath()));
        EXPECT_EQ(lWhole.at("fc_host/host3/port_name"), "0x2000000000000001");
        EXPECT_EQ(lWhole.at("fc_remote_ports/rport-3:0-1/port_id"), "0x10203");
        ZTCFcWatcher lWatcher(readFcHosts(lTree.getPath()).value(), {});
        // The first of them are no text either.
        constexpr const char* lTexts[] = {
            "",       "\n",     " \t \n0x1\n",           "\x1b[1m\n",           "\1\xff\x80", "16\n", "0x\n",
            "0x-1\n", "0x1g\n", "0x10000000000000000\n", "0xffffffffffffffff\n"};
        const std::function<void(const std::string&)> lOtherWays[] = {
            [](const std::string&) {},
            [](const std::string& acrPath) { std::filesystem::create_directory(acrPath); },
            [](const std::string& acrPath) { mkfifo(acrPath.c_str(), 0644); },
            [](const std::string& acrPath) { writeFile(acrPath, std::string(1 << 20, '7')); },
            [](const std::string& acrPath) { writeFile(acrPath, "0x1\n"), chmod(acrPath.c_str(), 0); }};
        for (const auto& [lrBelow, lrValue] : lWhole) {
            const bool lIsText = lrBelow.ends_with("port_state");
            const std::string lContent = readFile(lTree.pathOf(lrBelow));
            for (std::size_t lWay = 0; lWay < (lIsText ? 10 : 16); ++lWay) {
                SCOPED_TRACE(lrBelow + " " + std::to_string(lWay));
                auto lExpected = lWhole;
                lExpected[lrBelow] = lIsText ? "" : "none";
                lTree.remove(lrBelow);
                lWay < 5 ? lOtherWays[lWay](lTree.pathOf(lrBelow)) : lTree.set(lrBelow, lTexts[lWay - 5]);
                const auto lBroken = readFcHosts(lTree.getPath());
                EXPECT_EQ(valuesOf(lBroken), lExpected);
                ZTFcEvents lEvents;
                lWatcher.look(lBroken.value(), {}, lEvents);
                lTree.remove(lrBelow);
                lTree.set(lrBelow, lContent);
                lWatcher.look(readFcHosts(lTree.getPath()).value(), {}, lEvents);
                EXPECT_EQ(lEvents, ZTFcEvents());
            }
        }
    });
    EXPECT_EQ(lEnd.mStatus, 0) << lEnd.mOut << lEnd.mErr;
}

TEST(FcSysfs, NamesAndFolders) {
    const ZTCFcTestTree lTree;
    for (const char* const lpName :
         {"host", "hostx", "host1x", "host-1", "host4294967296", "xhost1", "host12"}) {
        lTree.add(
            std::string("fc_host/") + lpName,
            {{"permanent_port_name", "0x7"}, {"port_name", "0xffffffffffffffff"}, {"node_name", "0x0"}});
    }
    for (const char* const lpName :
         {"rport-12:0-0", "rport-1:0-0", "rport-12", "rport-:0-0", "port-12:0-1"}) {
        lTree.add(std::string("fc_remote_ports/") + lpName, {{"port_id", "0x1000000"}});
    }
    symlink("nowhere", lTree.pathOf("fc_host/host13").c_str());  // gone since its name was read
    const auto lHosts = readFcHosts(lTree.getPath()).value();
    ASSERT_EQ(lHosts.size(), 1U);
    EXPECT_FALSE(lHosts.at(12).mPort);
    EXPECT_FALSE(lHosts.at(12).mNode);
    EXPECT_EQ(lHosts.at(12).mPermanentPort, 7U);
    ASSERT_EQ(lHosts.at(12).mRemotePorts.size(), 1U);
    EXPECT_FALSE(lHosts.at(12).mRemotePorts.at("rport-12:0-0").mPortId);
    symlink("host14", lTree.pathOf("fc_host/host14").c_str());  // who knows
    EXPECT_FALSE(readFcHosts(lTree.getPath()));
    lTree.remove("fc_host/host14");
    for (const char* const lpFolder : {"fc_remote_ports", "fc_host"}) {
        lTree.remove(lpFolder);
        EXPECT_TRUE(readFcHosts(lTree.getPath())) << lpFolder;
        lTree.set(lpFolder, "");
        EXPECT_FALSE(readFcHosts(lTree.getPath())) << lpFolder;
        lTree.remove(lpFolder);
    }
    EXPECT_TRUE(readFcHosts("/nowhere").value().empty());
}

std::ptrdiff_t countOpen() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

// Numbers, known and not, of hosts 0 to as many.
std::string portsOf(const std::optional<ZTFcHosts>& acrHosts) {
    std::string lText;
    for (const auto& [lHost, lrHost] : acrHosts.value()) {
        lText +=
            std::to_string(lHost) + " " + textOf(lrHost.mPort) + " " + textOf(lrHost.mCounters[0]) + ", ";
    }
    return lText;
}

// Looks one after the other, with all kept open, nothing, and what a few descriptors suffice for.
TEST(FcSysfs, LookAfterLook) {
    for (const int lKept : {1024, 0, static_cast<int>(countOpen()) + 3}) {
        const ZTCFcTestTree lTree;
        const std::string lHost = "fc_host/host3/";
        const std::string lCounter = lHost + ZTFcCounters[0];
        ZTCFcSysfs lSysfs(lTree.getPath(), lKept);
        EXPECT_EQ(portsOf(lSysfs.look()), "");
        lTree.add("fc_host/host3", {{"statistics/x", ""}});
        symlink(std::string(NAME_MAX + 1, 'x').c_str(), lTree.pathOf(lHost + "port_state").c_str());
        const std::uint64_t lIdentity = lSysfs.look().value().at(3).mIdentity;
        lTree.set(lHost + "port_name", "0x7\n");  // it follows
        EXPECT_EQ(portsOf(lSysfs.look()), "3 0x7 none, ");
        lTree.set(lCounter, "0x5\n");
        lTree.remove(lHost + "port_state");
        lTree.set(lHost + "port_state", "Online\n");
        // The third is no time for another try of what was not there, but of what failed.
        const auto lThird = lSysfs.look();
        EXPECT_EQ(portsOf(lThird), "3 0x7 none, ");
        EXPECT_EQ(lThird.value().at(3).mState, "Online");
        for (const auto& [lpText, lpNow] : {std::pair("0x5", "0x5"),
                                            {"0x65", "0x65"},
                                            {"0x6", "0x6"},
                                            {"", "none"},
                                            {"x", "none"},
                                            {"0x7", "0x7"}}) {
            lTree.set(lCounter, lpText + std::string("\n"));
            EXPECT_EQ(portsOf(lSysfs.look()), std::string("3 0x7 ") + lpNow + ", ") << lKept;
        }
        lTree.addHost(3);  // anew
        lTree.add("fc_remote_ports/rport-3:0-1", {{"port_id", "0x1"}});
        EXPECT_EQ(portsOf(lSysfs.look()), "3 0x2000000000000003 0x5, ");
        lTree.add("fc_remote_ports/rport-3:0-1", {{"port_id", "0x2"}});
        const auto lHosts = lSysfs.look().value();
        EXPECT_NE(lHosts.at(3).mIdentity, lIdentity);
        EXPECT_EQ(lHosts.at(3).mRemotePorts.at("rport-3:0-1").mPortId, 2U);
        lTree.remove("fc_host/host3");
        EXPECT_EQ(portsOf(lSysfs.look()), "");
    }
}

TEST(FcSysfs, LosesNoDescriptorAndNoLook) {
    const ZTSTestEnd lEnd = runChild([] {
        const ZTCFcTestTree lTree;
        std::string lAll;
        const auto lAdd = [&](unsigned int aHost) {
            lTree.addHost(aHost);
            lAll += std::to_string(aHost) + " " + fcDigits(0x2000000000000000 + aHost) + " 0x5, ";
        };
        lAdd(0);
        const std::ptrdiff_t lBefore = countOpen();
        ZTCFcSysfs lSysfs(lTree.getPath(), INT_MAX);
        for (unsigned int lFailing = 1, lHasFailed = true; lHasFailed; ++lFailing) {
            FailingAllocator lAllocator(lFailing);
            try {
                lSysfs.look();
            } catch (const std::bad_alloc&) {
            }
            lAllocator.stop();
            lHasFailed = lAllocator.hasFailed();
        }
        EXPECT_EQ(portsOf(lSysfs.look()), lAll);
        EXPECT_EQ(countOpen(), lBefore + 4);
        rlimit lLimit{};
        getrlimit(RLIMIT_NOFILE, &lLimit);
        lLimit.rlim_cur = static_cast<rlim_t>(countOpen()) + 40;
        setrlimit(RLIMIT_NOFILE, &lLimit);
        std::vector<ZTCDescriptor> lElsewhere(1);
        for (bool lIsOpen = true; lIsOpen; lIsOpen = lElsewhere.back().isOpen()) {
            lElsewhere.emplace_back(open("/dev/null", O_RDONLY | O_CLOEXEC));
        }
        EXPECT_EQ(portsOf(lSysfs.look()), lAll);
        lElsewhere.clear();
        for (unsigned int lHost = 1; lHost < 1024; ++lHost) {
            lAdd(lHost);
        }
        EXPECT_EQ(portsOf(lSysfs.look()), lAll);
        EXPECT_LT(countOpen(), lBefore + 40);
        lLimit.rlim_cur = lLimit.rlim_max;
        setrlimit(RLIMIT_NOFILE, &lLimit);
        ZTCFcSysfs lOther(lTree.getPath());
        EXPECT_EQ(portsOf(lOther.look()), lAll);
        EXPECT_EQ(portsOf(lOther.look()), lAll);
        lTree.remove("fc_host");
        EXPECT_EQ(portsOf(lOther.look()), "");
        EXPECT_EQ(portsOf(lSysfs.look()), "");
        EXPECT_EQ(countOpen(), lBefore);
    });
    EXPECT_EQ(lEnd.mStatus, 0) << lEnd.mOut << lEnd.mErr;
}

}  // namespace
