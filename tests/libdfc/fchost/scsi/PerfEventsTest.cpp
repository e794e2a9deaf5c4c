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
        setProcessors(acrProcessors);
        const std::string lFilter = "pid == " + std::to_string(wanted());
        std::vector<ZTSPerfEvent> lEvents;
        for (const char* const lpName : {"sys_enter_getpgid", "sys_enter_getsid"}) {
            const ZTCTraceFormat lFormat("/sys/kernel/tracing", "syscalls", lpName);
            lEvents.push_back({lFormat.getId(), lFilter});
        }
        mEvents.emplace(lEvents, mDirectory.getPath());
    }
    void setProcessors(const std::string& acrText) const {
        writeFile(mDirectory / "devices/system/cpu/online", acrText + "\n");
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

// Two events each.
void happen(unsigned int aProcessor, unsigned int aCount) {
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

// Runs the test in a child of its own, which alone has tracefs.
void inChild(const std::function<void()>& acrWork) {
    const auto lEnd = runChild([&] {
        if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            mount("none", "/sys/kernel/tracing", "tracefs", 0, nullptr) != 0) {
            printf("%s%s\n", sSkipped, strerror(errno));
            return;
        }
        try {
            acrWork();
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
    inChild([] {
        const unsigned int lLast = std::thread::hardware_concurrency() - 1;
        Events lEvents("0-" + std::to_string(lLast));
        EXPECT_FALSE(lEvents.isReadable());
        happen(0, 3);
        EXPECT_TRUE(lEvents.isReadable());
        happen(lLast, 4);
        EXPECT_EQ(lEvents.take(), 14U);
        EXPECT_FALSE(lEvents.isReadable());
        EXPECT_EQ(lEvents.mEvents->takeLost(), 0U);
        happen(lLast, 20000);
        const std::size_t lTaken = lEvents.take();
        EXPECT_GT(lTaken, 1000U);
        EXPECT_EQ(lTaken + lEvents.mEvents->takeLost(), 40000U);
        happen(lLast, 1);
        EXPECT_TRUE(lEvents.isReadable());
        EXPECT_EQ(lEvents.take(), 2U);
        EXPECT_EQ(lEvents.mEvents->takeLost(), 0U);
    });
}

TEST(PerfEvents, FollowProcessorsThatComeAndGo) {
    inChild([] {
        const unsigned int lLast = std::thread::hardware_concurrency() - 1;
        if (lLast == 0) {
            printf("%sa single processor\n", sSkipped);
            return;
        }
        Events lEvents("0");
        happen(lLast, 1);
        EXPECT_FALSE(lEvents.isReadable());
        lEvents.setProcessors("0," + std::to_string(lLast));
        lEvents.mEvents->lookForProcessors();
        happen(lLast, 20000);
        lEvents.setProcessors(std::to_string(lLast));
        happen(0, 1);
        lEvents.mEvents->lookForProcessors();
        lEvents.setProcessors("0");
        lEvents.mEvents->lookForProcessors();
        const std::size_t lTaken = lEvents.take();
        EXPECT_EQ(lTaken + lEvents.mEvents->takeLost(), 40002U) << "of those that are gone";
        happen(lLast, 1);
        EXPECT_FALSE(lEvents.isReadable());
        happen(0, 1);
        EXPECT_EQ(lEvents.take(), 2U);
        for (const char* const lpLie : {"", "garbage", "0-4000000000"}) {
            lEvents.setProcessors(lpLie);
            lEvents.mEvents->lookForProcessors();
            EXPECT_NE(lEvents.mEvents->getRefusal(), "") << lpLie;
            happen(0, 1);
            EXPECT_EQ(lEvents.take(), 2U) << "as before " << lpLie;
        }
        lEvents.setProcessors("0");
        lEvents.mEvents->lookForProcessors();
        EXPECT_EQ(lEvents.mEvents->getRefusal(), "");
    });
}

}  // namespace
