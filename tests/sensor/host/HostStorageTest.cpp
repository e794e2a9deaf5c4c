// LUNs, maps, volumes and mounts of a host, whatever lies in their places.
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <random>

#include "FailingAllocator.h"
#include "StorageChanges.h"
#include "StorageFixture.h"

namespace {

using namespace std::chrono_literals;

const std::string sWhole =
    "3:0:0:1 1>0/1 sdb naa.60060160000000000000000000000001 SERIAL1 ARRAY DISK running active/optimized 32\n"
    "3:0:1:1 1>1/1 sdc naa.60060160000000000000000000000001 SERIAL1 ARRAY DISK running active/optimized 32\n"
    "mpatha dm-0 36006: sdb+p sdc+p\n"
    "vg0-data dm-1 over dm-0\n"
    "sda1 sda1 over sda\n"
    "/ sda1 ext4\n"
    "/data dm-1 xfs\n"
    "[swap] sda1 swap\n";

TEST_F(HostStorage, WhatIsNotKnownIsEmpty) {
    const ZTSTestEnd lEnd = runChild([this] {
        std::filesystem::permissions(mTree.getPath(), std::filesystem::perms::all);
        EXPECT_EQ(lookAnew(), sWhole);
        const std::function<void(const std::string&)> lWays[] = {
            [](const std::string&) {},
            [](const std::string& acrPath) { std::filesystem::create_directory(acrPath); },
            [](const std::string& acrPath) { mkfifo(acrPath.c_str(), 0644); },
            [](const std::string& acrPath) { writeFile(acrPath, std::string(8 << 20, '\xff')); },
            [](const std::string& acrPath) { std::filesystem::create_symlink("/dev/zero", acrPath); },
            [](const std::string& acrPath) { writeFile(acrPath, ""); },
            [](const std::string& acrPath) { std::filesystem::create_symlink(acrPath, acrPath); },
            [](const std::string& acrPath) { writeFile(acrPath, "\x1b[1m\n"); }};
        const std::string lLun = mTree.lunAt("3:0:0:1/");
        const std::pair<std::string, std::vector<std::string>> lCases[] = {
            {lLun + "state", {"running", ""}},
            {lLun + "access_state", {"active/optimized", ""}},
            {lLun + "queue_depth", {"32", "none"}},
            {lLun + "type", {}},
            {lLun + "vendor", {"ARRAY", ""}},
            {lLun + "model", {"DISK", ""}},
            {lLun + "vpd_pg80", {"SERIAL1", ""}},
            {lLun + "vpd_pg83", {"naa.60060160000000000000000000000001", ""}},
            {lLun + "ioerr_cnt", {}},
            {lLun + "block", {"sdb ", " "}},
            {"sys/class/fc_transport/target3:0:1/port_name", {"1>1", "1>0"}},
            {"sys/block/dm-0/dm/name", {"mpatha", "dm-0"}},
            {"sys/block/dm-0/dm/uuid", {"mpatha dm-0 36006: sdb+p sdc+p\n", "mpatha dm-0 over sdb sdc\n"}},
            {"sys/block/dm-0/slaves", {" sdb+p sdc+p", ""}},
            {"sys/block/dm-1/dev", {}},
            {"sys/block/sda/sda1",
             {"sda1 sda1 over sda\n", "", "/ sda1 ext4\n", "", "[swap] sda1 swap\n", ""}},
            {"proc/swaps", {"[swap] sda1 swap\n", ""}},
            {"proc/1/mountinfo", {"/ sda1 ext4\n/data dm-1 xfs\n[swap] sda1 swap\n", ""}}};
        for (const auto& [lrBelow, lrParts] : lCases) {
            std::string lExpected = sWhole;
            for (std::size_t lPart = 0; lPart < lrParts.size(); lPart += 2) {
                lExpected.replace(lExpected.find(lrParts[lPart]), lrParts[lPart].size(), lrParts[lPart + 1]);
            }
            std::filesystem::rename(mTree / lrBelow, mTree / "kept");
            for (std::size_t lWay = 0; lWay < std::size(lWays); ++lWay) {
                SCOPED_TRACE(lrBelow + " " + std::to_string(lWay));
                lWays[lWay](mTree / lrBelow);
                const std::string lSeen = lookAnew();
                // A partition is known by its name alone.
                EXPECT_TRUE(lSeen == lExpected || lrBelow.ends_with("sda1")) << lSeen;
                std::filesystem::remove_all(mTree / lrBelow);
            }
            std::filesystem::rename(mTree / "kept", mTree / lrBelow);
            EXPECT_EQ(lookAnew(), sWhole);
        }
    });
    EXPECT_EQ(lEnd.mStatus, 0) << lEnd.mOut;
}

TEST_F(HostStorage, WhatTheKernelTellsOfIsSeenAtOnce) {
    EXPECT_EQ(look(4), sWhole);
    EXPECT_FALSE(step(mStorage));
    const std::string lDevice = "/devices/pci0/host3/rport-3:0-1/target3:0:1/3:0:1:1";
    mTree.set(mTree.lunAt("3:0:1:1/state"), "offline\n");
    tell(lDevice, "change", {{"DEVTYPE", "scsi_device"}});
    EXPECT_TRUE(step(mStorage));
    EXPECT_FALSE(step(mStorage));
    EXPECT_TRUE(contains(textOf(mStorage.getStorage()), "offline"));
    // Another one in its place, whatever the file system numbers it.
    mTree.addLun("3:0:1:1", "sdc", "8:32", 7);
    tell(lDevice, "remove", {{"DEVTYPE", "scsi_device"}});
    tell(lDevice + "/block/sdc", "remove");
    EXPECT_TRUE(contains(look(1), "SERIAL7"));
    mTree.removeLun("3:0:1:1", "sdc");
    mTree.addMapped("dm-0", "mpatha", "mpath-36006", {"sdb"});
    tell(lDevice, "remove", {{"DEVTYPE", "scsi_device"}});
    tell(lDevice + "/block/sdc", "remove");
    tell("/devices/virtual/block/dm-0", "change");
    EXPECT_EQ(pathsOf(), "sdb+p");
    EXPECT_EQ(countIn(look(1), "SERIAL"), 1U);
    // Its disk comes behind it.
    mTree.addLun("3:0:1:1", "sdc", "8:32", 1);
    std::filesystem::rename(mTree / mTree.lunAt("3:0:1:1/block"), mTree / "later");
    tell(lDevice, "add", {{"DEVTYPE", "scsi_device"}});
    EXPECT_TRUE(contains(look(12), "3:0:1:1 1>1/1  naa"));
    std::filesystem::rename(mTree / "later", mTree / mTree.lunAt("3:0:1:1/block"));
    mTree.addMapped("dm-0", "mpatha", "mpath-36006", {"sdb", "sdc"});
    tell(lDevice + "/block/sdc", "add");
    tell("/devices/virtual/block/dm-0", "change");
    EXPECT_EQ(look(1), sWhole);
    mTree.set("proc/1/mountinfo", "22 1 8:1 / / rw - ext4 /dev/sda1 rw\n");
    EXPECT_FALSE(contains(look(1), "/data"));
    // What is of no disk, and what is no event of any.
    for (const char* const lpPath : {"", "/", "block", "/block/", "/x/block/loop0", "/3:0:1:1",
                                     "/3:0:1:18446744073709551616", "/block/dm-0/"}) {
        tell(lpPath, "remove");
        tell(lpPath, "add",
             {{"DM_ACTION", "PATH_FAILED"}, {"DM_PATH", "8:16:"}, {"DM_NR_VALID_PATHS", "-1"}});
    }
    EXPECT_TRUE(contains(look(4), "mpatha dm-0 36006: sdb+p sdc+p\n"));
}

TEST_F(HostStorage, WithoutAWordOfTheKernelARoundSeesIt) {
    EXPECT_EQ(look(4), sWhole);
    mTree.set(mTree.lunAt("3:0:0:1/access_state"), "standby\n");
    mTree.addLun("3:0:2:9", "sdd", "8:48", 9);
    mTree.addMapped("dm-1", "vg0-data", "LVM-abc", {"dm-0", "sdd"});
    mTree.set("proc/swaps", "Filename\n/dev/dm-1 partition 1 0 -2\n");
    const std::string lSeen = look(60);
    for (const char* const lpPart : {" standby ", "3:0:2:9 1>2/9 sdd", "over dm-0 sdd", "[swap] dm-1 swap"}) {
        EXPECT_TRUE(contains(lSeen, lpPart)) << lSeen;
    }
    // A target that does not tell its name: a remote port of its host does.
    mTree.remove("sys/class/fc_transport/target3:0:2");
    mTree.add("sys/class/fc_remote_ports/rport-3:0-7",
              {{"scsi_target_id", "2\n"}, {"port_name", "0x5000000000000042\n"}});
    mTree.add("sys/class/fc_remote_ports/rport-4:0-7",
              {{"scsi_target_id", "2\n"}, {"port_name", "0x5000000000000043\n"}});
    mTree.addLun("3:0:2:9", "sdd", "8:48", 9);
    mTree.remove("sys/class/fc_transport/target3:0:2");
    EXPECT_TRUE(contains(look(60), "3:0:2:9 1>42/9 sdd"));
    // The class has the devices where the bus does not.
    std::filesystem::create_directories(mTree / "sys/class/scsi_device/3:0:0:1");
    std::filesystem::rename(mTree / mTree.lunAt("3:0:0:1"), mTree / "sys/class/scsi_device/3:0:0:1/device");
    mTree.remove("sys/bus");
    EXPECT_EQ(lookAnew().substr(0, sWhole.find("run")), sWhole.substr(0, sWhole.find("run")));
}

TEST_F(HostStorage, OneOfAnAdapterThatIsNotKnownYetIsToldWithItsPort) {
    EXPECT_EQ(look(4), sWhole);
    mTree.addLun("4:0:5:1", "sdd", "8:48", 1);
    tell("/devices/x/4:0:5:1", "add", {{"DEVTYPE", "scsi_device"}});
    EXPECT_EQ(look(12), sWhole);
    mPorts.mLocal.push_back(mPorts.mLocal[0]);
    mPorts.mLocal[1].mHost = "host4";
    mPorts.mLocal[1].mNames.mPort = port(0x1000000000000002);
    EXPECT_TRUE(contains(look(2), "4:0:5:1 2>5/1 sdd"));
    mTree.addLun("5:0:6:1", "sde", "8:64", 1);  // one that stays unknown is told all the same
    EXPECT_FALSE(contains(look(55), "5:0:6:1"));
    EXPECT_TRUE(contains(look(52), "5:0:6:1 0>6/1 sde"));
}

TEST_F(HostStorage, OneThatCannotBeReadKeepsNothingElseBack) {
    std::filesystem::create_symlink("nowhere", mTree / mTree.lunAt("3:0:7:1"));
    look(4);
    EXPECT_FALSE(mStorage.isWhole());  // it may be coming
    look(8);
    EXPECT_TRUE(mStorage.isWhole());
}

TEST_F(HostStorage, ErrorsAreCountedAsTheyGrow) {
    const std::string lName = "naa.60060160000000000000000000000001";
    const auto lSet = [&](const char* apCounter, const char* apValue) {
        mTree.set(mTree.lunAt(std::string("3:0:0:1/") + apCounter), apValue);
        tell("/3:0:0:1", "change");
        look(1);
    };
    lSet("ioerr_cnt", "0x70");
    EXPECT_TRUE(mMeasures.isEmpty());
    for (const char* const lpValue :
         {"0x73", "garbage", "0x", "0x74", "0x74", "0x10", "0xffffffffffffffff0", "0x12"}) {
        lSet("ioerr_cnt", lpValue);
    }
    lSet("iotmo_cnt", "0x1\n");
    lSet("iorequest_cnt", "0x20\n");
    EXPECT_EQ(measured("ioerr", lName), 6U);
    EXPECT_EQ(measured("ioerr", ""), 6U);
    EXPECT_EQ(measured("iotmo", lName), 1U);
    EXPECT_EQ(measured("iorequest", ""), 16U);
    EXPECT_EQ(measured("iorequest", lName), 0U);
}

TEST_F(HostStorage, ShortOfAnythingNothingHasGone) {
    EXPECT_EQ(look(4), sWhole);
    for (unsigned int lFailing = 1;; ++lFailing) {
        mTree.set(mTree.lunAt("3:0:0:1/queue_depth"), lFailing % 2 == 0 ? "32\n" : "31\n");
        FailingAllocator lAllocator(lFailing);
        try {
            mStorage.lookAnew();
            step(mStorage);
        } catch (const std::bad_alloc&) {
        }
        lAllocator.stop();
        EXPECT_EQ(countIn(textOf(mStorage.getStorage()), "\n"), 8U);
        if (!lAllocator.hasFailed()) {
            break;
        }
    }
    mTree.set(mTree.lunAt("3:0:0:1/queue_depth"), "32\n");
    EXPECT_EQ(look(), sWhole);
    const ZTSTestEnd lEnd = runChild([this] {
        rlimit lUsual{};
        getrlimit(RLIMIT_NOFILE, &lUsual);
        const rlimit lNone{0, lUsual.rlim_max};
        EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &lNone), 0);
        mStorage.lookAnew();
        EXPECT_EQ(look(), sWhole);
        setrlimit(RLIMIT_NOFILE, &lUsual);
    });
    EXPECT_EQ(lEnd.mStatus, 0) << lEnd.mOut;
}

/// So many LUNs by eight paths, in maps, which come and go while they are looked at.
class ManyLuns : public HostStorage {
  protected:
    static constexpr unsigned int Paths = 8;
    const unsigned int mLuns = ZTTestRounds(32U, 1024U);

    std::string addressOf(unsigned int aLun, unsigned int aPath) const {
        return fmt::format("3:0:{}:{}", aPath % 4, aLun * 2 + aPath / 4);
    }
    std::string diskOf(unsigned int aLun, unsigned int aPath) const {
        return fmt::format("sd{}x{}", aLun, aPath);
    }
    void add(unsigned int aLun, unsigned int aPath) const {
        const unsigned int lNumber = aLun * Paths + aPath;
        mTree.addLun(addressOf(aLun, aPath), diskOf(aLun, aPath),
                     fmt::format("{}:{}", 65 + lNumber / 16, lNumber % 16 * 16),
                     static_cast<unsigned char>(aLun));
    }
    void addMap(unsigned int aLun, unsigned int aPaths) const {
        std::vector<std::string> lDisks;
        for (unsigned int lPath = 0; lPath < aPaths; ++lPath) {
            lDisks.push_back(diskOf(aLun, lPath));
        }
        mTree.addMapped(fmt::format("dm-{}", 100 + aLun), fmt::format("map{}", aLun),
                        fmt::format("mpath-{}", aLun), lDisks);
    }
    /// A slice as small as it is meant to be; what has come less what has gone since, by kind.
    void slice() {
        timespec lBegin{}, lEnd{};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &lBegin);
        mStorage.step(mPorts, 5ms, 3600 * ZTSecond, mMeasures);
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &lEnd);
        const auto lTook = std::chrono::seconds(lEnd.tv_sec - lBegin.tv_sec) +
                           std::chrono::nanoseconds(lEnd.tv_nsec - lBegin.tv_nsec);
        mLongest = std::max<std::chrono::nanoseconds>(mLongest, lTook);
        for (const ZTSChange& lrChange : listStorageChanges(mSeen, mStorage.getStorage(), 1)) {
            const int lSign = lrChange.mEvent == "came" ? 1 : lrChange.mEvent == "went" ? -1 : 0;
            const bool lIsRest = lrChange.mName.ends_with(" more");
            mTold[lrChange.mWhat] += lSign * (lIsRest ? std::stoi(lrChange.mName) : 1);
        }
        mSeen = mStorage.getStorage();
    }

    std::chrono::nanoseconds mLongest{0};
    std::map<std::string, int> mTold;
    ZTSHostStorage mSeen;
};

TEST_F(ManyLuns, ComeAndGoWhileTheyAreLookedAt) {
    for (unsigned int lLun = 0; lLun < mLuns; ++lLun) {
        for (unsigned int lPath = 0; lPath < Paths; ++lPath) {
            add(lLun, lPath);
        }
        addMap(lLun, Paths);
    }
    unsigned int lSteps = 0;
    for (; !mStorage.isWhole() && lSteps < 1000; ++lSteps) {
        slice();
    }
    EXPECT_LE(lSteps, ZTIsSanitized ? 1000U : 60U);
    std::atomic<bool> lEnds{false};
    std::thread lChurn([&] {
        std::minstd_rand lRandom(7);
        for (unsigned int lRound = 0; lRound < ZTTestRounds(1000U, 8000U); ++lRound) {
            const auto lLun = static_cast<unsigned int>(lRandom() % mLuns);
            const auto lPath = static_cast<unsigned int>(lRandom() % Paths);
            if (lRandom() % 2 == 0) {
                add(lLun, lPath);
            } else {
                mTree.removeLun(addressOf(lLun, lPath), diskOf(lLun, lPath));
            }
            if (lRandom() % 4 == 0) {
                addMap(lLun, static_cast<unsigned int>(lRandom() % (Paths + 1)));
            }
        }
        lEnds = true;
    });
    std::minstd_rand lRandom(8);
    while (!lEnds) {
        // The kernel tells of some of them.
        for (unsigned int lEvent = 0; lEvent < 20; ++lEvent) {
            const auto lLun = static_cast<unsigned int>(lRandom() % mLuns);
            const auto lPath = static_cast<unsigned int>(lRandom() % Paths);
            const char* const lpAction = lRandom() % 2 == 0 ? "add" : "remove";
            tell("/devices/host3/" + addressOf(lLun, lPath), lpAction, {{"DEVTYPE", "scsi_device"}});
            tell("/devices/host3/block/" + diskOf(lLun, lPath), lpAction);
            tell(fmt::format("/devices/virtual/block/dm-{}", 100 + lLun), "change");
        }
        slice();
    }
    lChurn.join();
    for (unsigned int lStep = 0; lStep < (ZTIsSanitized ? 400 : 130); ++lStep) {
        slice();
    }
    ZTCHostStorage lAnew(mTree.getPath());
    while (!lAnew.isWhole()) {
        step(lAnew);
    }
    EXPECT_EQ(textOf(mStorage.getStorage()), textOf(lAnew.getStorage()));
    EXPECT_EQ(mTold["lun"], static_cast<int>(mSeen.mLuns.size()));
    EXPECT_EQ(mTold["map"], static_cast<int>(mLuns) + 1);
    EXPECT_EQ(mStorage.getLeftOut(), 0U);
    EXPECT_LE(mLongest, ZTIsSanitized ? 1s : 50ms);
}

}  // namespace
