// The agent under attack: garbage on its command pipe, and a stranger who swaps things in its directory. Some
// rounds as a test, many of them with ZT_TORTURE=all.
#include <sys/mman.h>
#include <sys/stat.h>

#include <optional>
#include <random>

#include "SimClient.h"

namespace {

// What a broken or hostile sensor might write: noise, headers that lie, commands that are cut, repeated or
// mixed.
std::string garbageOf(std::minstd_rand& arRandom) {
    static const std::string sCommands[] = {
        messageOf(1, '\0' + wordOf(64)), messageOf(2, "\x01"), messageOf(3, "\x02"),
        messageOf(4, "\x03" + wordOf(1) + std::string(20, '\x11')), messageOf(5, "\x05" + wordOf(3))};
    const auto lBelow = [&](std::size_t aLimit) { return arRandom() % aLimit; };
    std::string lBytes;
    for (std::size_t lLeft = 1 + lBelow(4); lLeft != 0; --lLeft) {
        std::string lOne = sCommands[lBelow(std::size(sCommands))];
        switch (lBelow(5)) {
            case 0:
                lOne = std::string(lBelow(64), '\0');
                std::generate(lOne.begin(), lOne.end(), [&] { return static_cast<char>(lBelow(256)); });
                break;
            case 1:
                lOne[lBelow(lOne.size())] = static_cast<char>(lBelow(256));
                break;
            case 2:
                lOne.resize(lBelow(lOne.size() + 1));
                break;
            case 3:
                lOne.replace(8, 4, wordOf(arRandom() * 3));
                break;
            default:
                break;
        }
        lBytes += lOne;
    }
    return lBytes;
}

// The names in the directory, first those without which an agent starts and serves all the same.
const char* const sNames[] = {ZTTestSensorFile, ZTTestStatistics,  "vrx-sca.stats.new", ZTTestPidFile,
                              ZTTestLog,        ZTTestCommandPipe, ZTTestOutputPipe,    "vrx-sca.pid.new"};
constexpr std::size_t sHarmless = 3;

// What the stranger's process and the test share.
struct Stranger {
    std::atomic<unsigned long> mSwaps{0};
    std::atomic<std::size_t> mNames{std::size(sNames)};  // how many of the names are to be attacked
    std::atomic<std::size_t> mAttacked{0};               // how many are

    void attack(std::size_t aNames) {
        mNames = aNames;
        EXPECT_TRUE(waitUntil([&] { return mAttacked == aNames; }));
    }
};

// Fills the directory's names again and again with what another user may put there. Never returns.
void swapThings(const ZTCTestDirectory& acrDirectory, const std::string& acrVictim, Stranger& arStranger) {
    const std::string lMine = acrDirectory / "mine";
    for (std::size_t lAt = 0;; ++lAt) {
        const std::size_t lNames = arStranger.mNames;
        arStranger.mAttacked = lNames;
        switch (lAt / lNames % 4) {
            case 0:
                symlink(acrVictim.c_str(), lMine.c_str());
                break;
            case 1:
                mkfifo(lMine.c_str(), 0666);
                break;
            case 2:
                close(open(lMine.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0666));
                break;
            default:
                link(acrVictim.c_str(), lMine.c_str());
                break;
        }
        const std::string lName = acrDirectory / sNames[lAt % lNames];
        arStranger.mSwaps += rename(lMine.c_str(), lName.c_str()) == 0 ? 1 : 0;
        if (lAt % 3 == 0) {
            unlink(lName.c_str());
        }
        unlink(lMine.c_str());
    }
}

}  // namespace

TEST(Attack, GarbageOnTheCommandPipeEndsTheAgentInOrderOrNotAtAll) {
    const unsigned int lRounds = ZTTestRounds(40U, 10000U);
    std::minstd_rand lRandom(20261121);
    std::map<int, unsigned int> lEnds;
    for (unsigned int lRound = 0; lRound < lRounds; ++lRound) {
        const std::string lBytes = garbageOf(lRandom);
        SCOPED_TRACE(testing::Message() << "round " << lRound);
        const ZTCTestDirectory lDirectory;
        ZTCTestAgent lAgent(lDirectory);
        {
            const ZTCTestSensor lSensor(lDirectory);
            signal(SIGPIPE, SIG_IGN);
            static_cast<void>(write(lSensor.getCommands().get(), lBytes.data(), lBytes.size()) > 0);
        }
        // The sensor has gone: it has taken everything, or has ended.
        const ZTCDescriptor lPipe(
            open((lDirectory / ZTTestCommandPipe).c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
        waitUntil([&] { return !lAgent.isAlive() || !lPipe.isOpen() || unreadIn(lPipe) == 0; });
        lAgent.sendSignal(SIGTERM);
        const int lStatus = lAgent.waitForEnd(20);
        ++lEnds[lStatus];
        ASSERT_TRUE(lStatus == 0 || lStatus == 1) << lStatus << lAgent.getErr();
        const bool lIsAssertion = contains(lAgent.getLog(), "Assertion [ false ] failed");
        EXPECT_EQ(lStatus, lIsAssertion ? 1 : 0);
        if (lStatus == 0) {
            EXPECT_EQ(namesIn(lDirectory), std::set<std::string>{ZTTestLog});
        }
    }
    printf("%u rounds of garbage: %u ends with status 0, %u with an assertion\n", lRounds, lEnds[0],
           lEnds[1]);
}

TEST(Attack, AStrangerWhoSwapsThingsInAStickyDirectoryGetsNothing) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can become the stranger";
    }
    const unsigned long lWanted = ZTTestRounds(8000UL, 300000UL);
    const ZTCTestDirectory lDirectory;
    const ZTCTestDirectory lElsewhere;
    const std::string lVictim = lElsewhere / "victim";
    writeFile(lVictim, "untouched");
    chmod(lElsewhere.getPath().c_str(), 0755);
    chmod(lVictim.c_str(), 0644);
    chmod(lDirectory.getPath().c_str(), S_ISVTX | 0777);
    void* const lpShared =
        mmap(nullptr, sizeof(Stranger), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(lpShared, MAP_FAILED);
    Stranger& lrStranger = *new (lpShared) Stranger;
    std::optional<ZTCTestChild> lStranger(std::in_place, [&] {
        EXPECT_EQ(setgid(65534), 0);
        EXPECT_EQ(setuid(65534), 0);
        swapThings(lDirectory, lVictim, lrStranger);
    });
    unsigned int lStarts = 0;
    unsigned int lServed = 0;
    struct stat lStatus {};
    // The log is not looked at: it may be the stranger's pipe.
    const auto lServes = [&] {
        return lstat((lDirectory / ZTTestOutputPipe).c_str(), &lStatus) == 0 && lStatus.st_uid == 0;
    };
    while (lrStranger.mSwaps < lWanted || lStarts < 20) {
        ++lStarts;
        // Every other agent is let start, and has all names attacked while it serves and ends; one of these
        // lives until it has looked for its sensor. Of the others most have their log elsewhere: where it is
        // one of the names, the agent seldom comes to the rest.
        const bool lIsLet = lStarts % 2 != 0;
        lrStranger.attack(lIsLet ? sHarmless : std::size(sNames));
        for (const char* const lpName : sNames) {
            lIsLet ? unlink((lDirectory / lpName).c_str()) : 0;
        }
        ZTCTestAgent::Options lOptions{"-b", "1"};
        if (lStarts % 4 != 0) {
            lOptions.insert(lOptions.end(), {"-l", lElsewhere / "log"});
        }
        ZTCTestAgent lAgent(lDirectory, lOptions);
        // It serves, by a pipe of its own, or has refused what it found.
        waitUntil([&] { return !lAgent.isAlive() || lServes(); });
        lServed += lServes() ? 1 : 0;
        if (lIsLet) {
            EXPECT_TRUE(lServes()) << lAgent.getErr();
            lrStranger.attack(std::size(sNames));
            const unsigned long lSwaps = lrStranger.mSwaps;
            EXPECT_TRUE(waitUntil([&] { return lrStranger.mSwaps > lSwaps + 20; }));
            const auto lTouched = [&] {
                return std::filesystem::last_write_time(lDirectory / ZTTestPidFile);
            };
            const auto lBefore = lTouched();
            EXPECT_TRUE(lStarts != 1 || waitUntil([&] { return lTouched() != lBefore; }));
        }
        lAgent.sendSignal(SIGTERM);
        ASSERT_EQ(lAgent.waitForEnd(20), 0) << lAgent.getErr();
        EXPECT_FALSE(lServes());
    }
    lStranger.reset();
    EXPECT_GT(lServed, 0U);
    EXPECT_EQ(stat(lVictim.c_str(), &lStatus), 0);
    EXPECT_EQ(lStatus.st_mode & 07777, 0644U);
    EXPECT_EQ(lStatus.st_uid, 0U);
    EXPECT_EQ(readFile(lVictim), "untouched");
    for (const auto& lrEntry : std::filesystem::directory_iterator(lDirectory.getPath())) {
        EXPECT_EQ(lstat(lrEntry.path().c_str(), &lStatus), 0);
        EXPECT_TRUE(lStatus.st_uid == 0 || !S_ISREG(lStatus.st_mode) || lStatus.st_size == 0)
            << lrEntry.path();
    }
    printf("%lu swaps, %u starts, %u served\n", lrStranger.mSwaps.load(), lStarts, lServed);
    munmap(lpShared, sizeof(Stranger));
}
