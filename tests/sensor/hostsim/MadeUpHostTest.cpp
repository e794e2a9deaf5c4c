// A made-up host, as those see it who look at a real one.
#include "DiskStats.h"
#include "FpinDescriptor.h"
#include "HostPorts.h"
#include "HostStorage.h"
#include "KernelMessages.h"
#include "MadeUpHostProgram.h"
#include "PortLabels.h"
#include "TransportMessage.h"

namespace {

using namespace std::chrono_literals;

// Everything that looks, as vrx-sn has it, and the host that it looks at.
struct Sight {
    explicit Sight(const std::string& acrSite = "") : mHost(acrSite) {}

    /// Has lines played, and looks meanwhile: a socket holds few messages.
    void play(const std::string& acrLines) {
        auto lPlayed = std::async(std::launch::async, [&] { mHost.play(acrLines); });
        EXPECT_TRUE(lookUntil([&] { return lPlayed.wait_for(0s) == std::future_status::ready; })) << acrLines;
    }
    bool lookUntil(const std::function<bool()>& acrIsSo) {
        return waitUntil([&] {
            for (std::span<const unsigned char> lBytes; mUevents.receive(lBytes) != Got::Nothing;) {
                if (const auto lEvent = readUevent(lBytes)) {
                    mStorage.take(*lEvent);
                }
            }
            mPorts.look();
            mStorage.step(mPorts.getPorts(), 50ms, 1, mMeasures);
            return acrIsSo();
        });
    }
    /// "mpatha 4/8" of each map.
    std::string getPaths() const {
        std::string lText;
        for (const ZTSMap& lrMap : mStorage.getStorage().mMaps) {
            lText += lrMap.mName + " " + std::to_string(lrMap.countUsable()) + "/" +
                     std::to_string(lrMap.mPaths.size()) + " ";
        }
        return lText;
    }
    ZTSDiskStats getDisk(const std::string& acrDisk) const {
        for (const ZTSDiskStats& lrDisk : readDiskStats(readFile(mHost / "proc/diskstats"))) {
            if (lrDisk.mDisk == acrDisk) {
                return lrDisk;
            }
        }
        return {};
    }
    bool isGoingOn(const std::string& acrDisk) const {
        const std::uint64_t lBefore = getDisk(acrDisk).mCompleted;
        return waitUntil([&] { return getDisk(acrDisk).mCompleted > lBefore; });
    }

    using Got = ZTCKernelMessages::Got;
    ZTCTestHost mHost;
    ZTCKernelMessages mTransport{mHost.getRoot(), ZTCKernelMessages::What::Transport};
    ZTCKernelMessages mUevents{mHost.getRoot(), ZTCKernelMessages::What::Uevents};
    ZTCHostPorts mPorts{mHost.getRoot()};
    ZTCHostStorage mStorage{mHost.getRoot()};
    ZTCMeasures mMeasures;
};

constexpr char sAllPaths[] = "mpatha 8/8 mpathb 8/8 mpathc 8/8 ";

TEST(MadeUpHost, IsSeenAsARealOne) {
    Sight lSight;
    ASSERT_TRUE(lSight.lookUntil([&] { return lSight.mStorage.isWhole(); }));
    const ZTSHostPorts& lrPorts = lSight.mPorts.getPorts();
    ASSERT_EQ(lrPorts.mLocal.size(), 4U);
    EXPECT_EQ(lrPorts.mRemote.size(), 16U);
    EXPECT_NE(lrPorts.mLocal[0].mFabric, lrPorts.mLocal[1].mFabric);
    // Both fabrics have the same addresses: only with its fabric one means a port.
    EXPECT_TRUE(lrPorts.listUniqueTargets().empty());
    EXPECT_NE(lrPorts.findAt(lrPorts.mLocal[0].mFabric, 0x010a00)->mNames.mPort,
              lrPorts.findAt(lrPorts.mLocal[1].mFabric, 0x010a00)->mNames.mPort);

    const ZTSHostStorage& lrStorage = lSight.mStorage.getStorage();
    EXPECT_EQ(lrStorage.mLuns.size(), 24U);
    EXPECT_EQ(lSight.getPaths(), sAllPaths);
    const ZTSLun* const lpLun = lrStorage.findDisk("sdb");
    ASSERT_NE(lpLun, nullptr);
    EXPECT_EQ(lpLun->mWwid, "naa.600601603b20110c000000000000000c");
    EXPECT_EQ(lpLun->mSerial, "MU110000C");
    EXPECT_EQ(lpLun->mTarget.toText(), "50:06:01:60:3b:20:11:0c");
    EXPECT_EQ(lrStorage.hitBy("sda").toText(), "/, /boot, /home, [swap]");
    EXPECT_EQ(lrStorage.hitBy("dm-2").toText(), "/data, /var/log of applications");
    EXPECT_EQ(lrStorage.hitBy("vda").toText(), "/scratch");
    EXPECT_TRUE(readPortLabels(readFile(lSight.mHost / "etc/vrx-sca/names")).mMistakes.empty());
    std::string lWhyNot;
    EXPECT_EQ(askMultipathd(lSight.mHost.getRoot(), 1s, lWhyNot).value().size(), 24U) << lWhyNot;
}

TEST(MadeUpHost, PathsGoAndComeAsTheKernelTellsOfThem) {
    Sight lSight;
    ASSERT_TRUE(lSight.lookUntil([&] { return lSight.mStorage.isWhole(); }));
    const struct {
        const char* mpLines;
        const char* mpPaths;
    } lRows[] = {{"path-fail sdb", "mpatha 8/8 mpathb 7/8 mpathc 8/8 "},
                 {"path-back sdb", sAllPaths},
                 {"link-down host1\nlink-down host3", "mpatha 4/8 mpathb 4/8 mpathc 4/8 "},
                 {"path-fail mpathc", "mpatha 4/8 mpathb 4/8 mpathc 0/8 "},
                 {"link-up host1\nlink-up host3 after=300ms", "mpatha 8/8 mpathb 8/8 mpathc 0/8 "},
                 {"path-back mpathc", sAllPaths},
                 {"target-lost array1/A", "mpatha 4/8 mpathb 4/8 mpathc 8/8 "},
                 {"target-gone array1/A", "mpatha 4/4 mpathb 4/4 mpathc 8/8 "},
                 {"target-back array1/A", sAllPaths},
                 {"lun-gone mpathc", "mpatha 8/8 mpathb 8/8 mpathc 0/0 "},
                 {"lun-back mpathc", sAllPaths},
                 {"path-gone sdx", "mpatha 8/8 mpathb 8/8 mpathc 7/7 "},
                 {"reboot kernel=6.1.0-31-amd64", sAllPaths}};
    for (const auto& lrRow : lRows) {
        lSight.play(lrRow.mpLines);
        const bool lIsReboot = std::string(lrRow.mpLines).starts_with("reboot");
        lIsReboot ? lSight.mStorage.lookAnew() : void();
        EXPECT_TRUE(lSight.lookUntil([&] { return lSight.getPaths() == lrRow.mpPaths; }))
            << lrRow.mpLines << ": " << lSight.getPaths() << lSight.mHost.ask("report");
    }
    EXPECT_TRUE(contains(lSight.mHost.ask("report"), " 0 lost"));
}

TEST(MadeUpHost, DisksGoOnUntilTheyStall) {
    Sight lSight;
    const auto lWaits = [&](const std::string& acrDisk) { return lSight.getDisk(acrDisk).mInFlight > 1; };
    for (const char* const lpDisk : {"sda", "dm-0", "dm-8", "vda"}) {
        EXPECT_TRUE(lSight.isGoingOn(lpDisk)) << lpDisk;
    }
    // What stands still is what has no way left; what lies above it waits.
    const struct {
        const char* mpLines;
        std::vector<const char*> mStand, mGoOn;
    } lRows[] = {{"stall sdb", {"sdb"}, {"dm-1", "dm-8", "sdd"}},
                 {"go-on sdb\nstall dm-1", {"dm-1", "dm-8"}, {"dm-0", "dm-9"}},
                 {"go-on dm-1\nlink-down host1 after=1m", {"sda", "sdf"}, {"sdg", "dm-0", "vda"}},
                 {"link-up host1\npath-fail mpatha\nstall vda", {"dm-0", "dm-5", "vda"}, {"dm-1"}}};
    for (const auto& lrRow : lRows) {
        lSight.mHost.play(lrRow.mpLines);
        EXPECT_TRUE(waitUntil([&] { return std::ranges::all_of(lrRow.mStand, lWaits); })) << lrRow.mpLines;
        const std::uint64_t lBefore = lSight.getDisk(lrRow.mStand[0]).mCompleted;
        for (const char* const lpDisk : lrRow.mGoOn) {
            EXPECT_TRUE(lSight.isGoingOn(lpDisk)) << lrRow.mpLines << " " << lpDisk;
        }
        EXPECT_EQ(lSight.getDisk(lrRow.mStand[0]).mCompleted, lBefore) << lrRow.mpLines;
    }
}

TEST(MadeUpHost, AFabricTellsOfItsPerformance) {
    const Sight lSight;
    lSight.mHost.play(
        "lose 2\n"
        "fpin host3 link-integrity port=array1-A0 event=loss_of_signal modifier=1 count=5 threshold=1000 "
        "ports=array1-A0,array1-B0 delivery event=timeout peer-congestion period=7 event=3 "
        "congestion event=credit_stall severity=alarm period=2000 0x20007 bytes=00ff");
    std::span<const unsigned char> lBytes;
    ASSERT_TRUE(waitUntil([&] {
        return const_cast<ZTCKernelMessages&>(lSight.mTransport).receive(lBytes) == Sight::Got::Message;
    }));
    std::string lTold;
    EXPECT_EQ(readTransportMessages(
                  lBytes.data(), lBytes.size(),
                  [&](const ZTSFcMessage& acrMessage) {
                      EXPECT_EQ(acrMessage.mHost, 3U);
                      EXPECT_EQ(acrMessage.mNumber, 3U);
                      EXPECT_TRUE(acrMessage.isFpin());
                      EXPECT_TRUE(readFpin(acrMessage.mData, [&](const ZTSFpinDescriptor& acrOne) {
                          lTold += std::to_string(acrOne.mKind) + " " + std::to_string(acrOne.mEvent) + " " +
                                   std::to_string(acrOne.mCount + acrOne.mPeriod) + " " +
                                   std::to_string(acrOne.countPorts()) + "\n";
                      }));
                  }),
              0U);
    EXPECT_EQ(lTold, "0 3 5 2\n1 1 0 0\n2 3 7 0\n3 2 2000 0\n4 0 0 0\n");
    // The kernel counts for the ports that it is about.
    for (const auto& [lpFile, lpNumber] :
         {std::pair("fc_remote_ports/rport-3:0-0/statistics/fpin_li_loss_of_signals_count", "0x1"),
          std::pair("fc_remote_ports/rport-3:0-1/statistics/fpin_li", "0x1"),
          std::pair("fc_remote_ports/rport-1:0-1/statistics/fpin_li", "0x0"),
          std::pair("fc_host/host3/statistics/fpin_cn_credit_stall", "0x1")}) {
        EXPECT_EQ(lSight.mHost.read(std::string("sys/class/") + lpFile), lpNumber) << lpFile;
    }
}

}  // namespace
