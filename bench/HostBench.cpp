// vrx-sn on a made-up host: what looking at LUNs and paths costs it at rest, and how a host with very many
// of them is looked at.
#include <fmt/format.h>

#include <chrono>
#include <filesystem>
#include <stdexcept>
#include <thread>

#include "AgentStatistics.h"
#include "Bench.h"
#include "BenchProcess.h"
#include "HostBacklog.h"
#include "MadeUpHost.h"
#include "SensorError.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr char sThreads[] = "vrx-sn-ports vrx-sn-disks vrx-sn-files";  // those that look
constexpr double sSecondsOfDay = 86400;

// Four ports on two fabrics; a controller is a path from each of them.
std::string sSiteOf(unsigned int aLuns, unsigned int aControllers) {
    std::string lText = "fabric left 10:00:00:00:00:00:0f:01\nfabric right 10:00:00:00:00:00:0f:02\n";
    for (unsigned int lPort = 0; lPort < 4; ++lPort) {
        lText += fmt::format(
            "port host{0} fabric={1} wwpn=10:00:00:00:00:00:01:0{0} "
            "wwnn=20:00:00:00:00:00:01:0{0} id=0x01010{0}\n",
            lPort, lPort % 2 == 0 ? "left" : "right");
    }
    for (unsigned int lTarget = 0; lTarget < 2 * aControllers; ++lTarget) {
        lText += fmt::format(
            "target target{0} array=array controller=C{1} fabric={2} "
            "wwpn=50:00:00:00:00:00:02:0{0} wwnn=51:00:00:00:00:00:02:00 id=0x02010{0}\n",
            lTarget, lTarget / 2, lTarget % 2 == 0 ? "left" : "right");
    }
    return lText + fmt::format("lun array 0-{} map=mpath wwid=600601603b20110c0000000000000000 serial=MU\n",
                               aLuns - 1);
}

// vrx-sn on such a host, without an agent.
class Stand {
  public:
    Stand(unsigned int aLuns, unsigned int aControllers)
        : mPaths(std::uint64_t{4} * aLuns * aControllers),
          mHost(mFolder + "/root", readHostSite(sSiteOf(aLuns, aControllers), "site")),
          mSensor({ZT_VRX_SN, "--dir", mFolder + "/agent", "--store", mFolder + "/history.db", "--root",
                   mFolder + "/root"},
                  {"RUNTIME_DIRECTORY=" + mFolder}) {}
    ~Stand() {
        mSensor.end();
        std::error_code lIgnored;
        std::filesystem::remove_all(mFolder, lIgnored);
    }
    Stand(const Stand&) = delete;
    Stand& operator=(const Stand&) = delete;

    const ZTCBenchProcess& getSensor() const { return mSensor; }
    std::uint64_t getFigure(const char* apName) const {
        try {
            return ZTCAgentStatistics(mFolder, "/vrx-sn.stats", ZTEStatisticsOf::Any)
                .read()
                .get(apName)
                .value_or(0);
        } catch (const ZTCSensorError&) {
            return 0;
        }
    }
    // How long, in seconds.
    double waitForFirstRound() const {
        const auto lBegin = Clock::now();
        while (getFigure("luns") != mPaths) {
            if (Clock::now() - lBegin > 300s) {
                throw std::runtime_error("vrx-sn does not see its host");
            }
            std::this_thread::sleep_for(100ms);
        }
        return std::chrono::duration<double>(Clock::now() - lBegin).count();
    }
    // aIsBusy: commands go on at each disk.
    void run(std::chrono::seconds aTime, bool aIsBusy) {
        const auto lEnd = Clock::now() + aTime;
        for (auto lNext = Clock::now(); lNext < lEnd; lNext += 1s) {
            std::this_thread::sleep_until(lNext);
            aIsBusy ? mHost.step(lNext) : void();
        }
        std::this_thread::sleep_until(lEnd);
    }

  private:
    const std::uint64_t mPaths;
    const std::string mFolder = ztbench::makeFolder("/dev/shm");
    ZTCMadeUpHost mHost;
    ZTCBenchProcess mSensor;
};

void sRest() {
    Stand lStand(200, 1);
    lStand.waitForFirstRound();
    lStand.run(5s, false);  // until the start is over
    for (const bool lIsBusy : {false, true}) {
        const auto lBegin = Clock::now();
        const ZTSBenchCost lAllBefore = lStand.getSensor().getCost();
        const ZTSBenchCost lBefore = lStand.getSensor().getCost(sThreads);
        lStand.run(ztbench::isFull() ? 120s : 15s, lIsBusy);
        const ZTSBenchCost lLooks = lStand.getSensor().getCost(sThreads) - lBefore;
        const ZTSBenchCost lAll = lStand.getSensor().getCost() - lAllBefore;
        const double lTime = std::chrono::duration<double>(Clock::now() - lBegin).count();
        ZTSBenchRow lRow;
        lRow.mName = fmt::format("host: 200 LUNs by 4 paths, {}", lIsBusy ? "commands on each" : "at rest");
        lRow.mMore = fmt::format(
            "looks: {:.1f} wake-ups a second (wanted 4), {:.0f} s of a processor a day (wanted 150); "
            "all of vrx-sn: {:.1f}, {:.0f} s",
            lLooks.mSleeps / lTime, lLooks.mSeconds / lTime * sSecondsOfDay, lAll.mSleeps / lTime,
            lAll.mSeconds / lTime * sSecondsOfDay);
        lRow.print();
    }
}

void sMany() {
    Stand lStand(1024, 2);
    const double lFirst = lStand.waitForFirstRound();
    const auto lSlice = [&] { return static_cast<double>(lStand.getFigure("longest_slice_ns")) / 1e6; };
    lStand.run(5s, false);
    const double lStart = lSlice();
    lStand.run(ztbench::isFull() ? 120s : 15s, true);
    const auto [lNow, lMost] = lStand.getSensor().getResident();
    ZTSBenchRow lRow;
    lRow.mName = "host: 1024 LUNs by 8 paths, commands on each";
    lRow.mMore = fmt::format(
        "first round whole in {:.1f} s (wanted 60), longest slice {:.1f} ms, first round {:.1f} ms (wanted "
        "50), {:.0f} MiB resident, {:.0f} at most",
        lFirst, lSlice(), lStart, lNow, lMost);
    lRow.print();
}

// A disk stands still while a fabric tells of something else each time.
void sFpins() {
    constexpr unsigned int lTurn = 1000;
    ZTCHostBacklog lBacklog(std::size_t{64} << 20);
    unsigned int lCount = 0;
    const auto lTake = [&] {
        const auto lBegin = Clock::now();
        for (unsigned int lAt = 0; lAt < lTurn; ++lAt) {
            ZTSHostNews lNews;
            ZTSFpin& lrFpin = lNews.mFpins.emplace_back();
            lrFpin.mDescriptor = "link_integrity";
            lrFpin.mModifier = ++lCount;
            lBacklog.take(std::move(lNews));
        }
        return std::chrono::duration<double, std::nano>(Clock::now() - lBegin).count() / lTurn;
    };
    const double lFirst = lTake();
    double lLast = 0;
    while (lCount < 16 * lTurn) {
        lLast = lTake();
    }
    ZTSBenchRow lRow;
    lRow.mName = "host: an FPIN beside 16000 that wait for the store";
    lRow.mTimes = {lLast};
    lRow.mMore = fmt::format("{:.0f} ns beside 1000", lFirst);
    lRow.print();
}

}  // namespace

void ztbench::host() {
    sRest();
    sMany();
    sFpins();
}
