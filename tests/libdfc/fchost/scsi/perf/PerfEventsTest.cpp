#include <poll.h>
#include <sched.h>
#include <sys/mount.h>

#include "PerfEvents.h"
#include "ScsiSource.h"
#include "TestSupport.h"
#include "TraceFormat.h"

namespace {

constexpr const char* sSkipped = "not here: ";

// What nobody else asks for: a process that is not there.
int wanted() {
    return 0x40000000 + getpid();
}

// Takes the events of two system calls that ask for it, on the processors that a file lists.
struct Events {
    explicit Events(const std::string& acrProcessors) {
        std::filesystem::create_directories(mDirectory / "devices/system/cpu");
        look(acrProcessors);
        const std::string lFilter = "pid == " + std::to_string(wanted());
        std::vector<ZTSPerfEvent> lEvents;
        for (const char* const lpName : {"sys_enter_getpgid", "sys_enter_getsid"}) {
            const ZTCTraceFormat lFormat("/sys/kernel/tracing", "syscalls", lpName);
            lEvents.push_back({lFormat.getId(), lFilter});
        }
        mEvents.emplace(lEvents, mDirectory.getPath());
    }
    void look(const std::string& acrProcessors) {
        writeFile(mDirectory / "devices/system/cpu/online", acrProcessors + "\n");
        mEvents ? mEvents->lookForProcessors() : void();
    }
    bool isReadable() const {
        pollfd lPoll{mEvents->getFile(), POLLIN, 0};
        return poll(&lPoll, 1, 0) == 1;
    }
    std::size_t take() {
        std::size_t lTaken = 0;
        mEvents->take([&](const unsigned char*, std::size_t aSize) { lTaken += aSize >= 12 ? 1 : 0; });
        return lTaken;
    }

    const ZTCTestDirectory mDirectory;
    std::optional<ZTCPerfEvents> mEvents;
};

// Two events each, on one of the processors.
void happen(int aProcessor, unsigned int aCount) {
    cpu_set_t lOne;
    CPU_ZERO(&lOne);
    CPU_SET(aProcessor, &lOne);
    ASSERT_EQ(sched_setaffinity(0, sizeof lOne, &lOne), 0);
    for (; aCount > 0; --aCount) {
        getpgid(wanted());
        getsid(wanted());
        getsid(0);
    }
}

// Runs the test, given two processors, in a child of its own, which alone has tracefs.
void inChild(const std::function<void(int, int)>& acrWork) {
    const auto lEnd = runChild([&] {
        cpu_set_t lOurs;
        std::vector<int> lProcessors;
        sched_getaffinity(0, sizeof lOurs, &lOurs);
        for (int lAt = 0; lAt < CPU_SETSIZE; ++lAt) {
            CPU_ISSET(lAt, &lOurs) ? lProcessors.push_back(lAt) : void();
        }
        if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            mount("none", "/sys/kernel/tracing", "tracefs", 0, nullptr) != 0 || lProcessors.size() < 2) {
            printf("%sno tracefs of one's own, or one processor\n", sSkipped);
            return;
        }
        try {
            acrWork(lProcessors[0], lProcessors[1]);
        } catch (const ZTCScsiNotAvailable& lrReason) {
            printf("%s%s\n", sSkipped, lrReason.what());
        }
    });
    if (contains(lEnd.mOut, sSkipped)) {
        GTEST_SKIP() << lEnd.mOut;
    }
    EXPECT_EQ(lEnd.mStatus, 0) << lEnd.mOut << lEnd.mErr;
}

TEST(PerfEvents, ComeFromAllProcessorsAndAreCountedBeyondTheRoom) {
    inChild([](int aFirst, int aSecond) {
        Events lEvents(std::to_string(aFirst) + "-" + std::to_string(aSecond));
        EXPECT_FALSE(lEvents.isReadable());
        happen(aFirst, 3);
        EXPECT_TRUE(lEvents.isReadable());
        happen(aSecond, 4);
        EXPECT_EQ(lEvents.take(), 14U);
        EXPECT_FALSE(lEvents.isReadable());
        EXPECT_EQ(lEvents.mEvents->takeLost(), 0U);
        happen(aSecond, 20000);
        const std::size_t lTaken = lEvents.take();
        EXPECT_GT(lTaken, 1000U);
        EXPECT_EQ(lTaken + lEvents.mEvents->takeLost(), 40000U);
        happen(aSecond, 1);
        EXPECT_TRUE(lEvents.isReadable());
        EXPECT_EQ(lEvents.take(), 2U);
        EXPECT_EQ(lEvents.mEvents->takeLost(), 0U);
    });
}

TEST(PerfEvents, FollowProcessorsThatComeAndGo) {
    inChild([](int aFirst, int aSecond) {
        const std::string lFirst = std::to_string(aFirst);
        Events lEvents(lFirst);
        happen(aSecond, 1);
        EXPECT_FALSE(lEvents.isReadable());
        lEvents.look(lFirst + "," + std::to_string(aSecond));
        happen(aSecond, 20000);
        happen(aFirst, 1);
        lEvents.look(std::to_string(aSecond));
        lEvents.look(lFirst);
        const std::size_t lTaken = lEvents.take();
        EXPECT_EQ(lTaken + lEvents.mEvents->takeLost(), 40002U) << "of those that have gone";
        happen(aSecond, 1);
        for (const char* const lpLie : {"", "garbage", "0-4000000000"}) {
            lEvents.look(lpLie);
            EXPECT_NE(lEvents.mEvents->getRefusal(), "") << lpLie;
            happen(aFirst, 1);
            EXPECT_EQ(lEvents.take(), 2U) << "as before " << lpLie;
        }
        lEvents.look(lFirst);
        EXPECT_EQ(lEvents.mEvents->getRefusal(), "");
    });
}

}  // namespace
