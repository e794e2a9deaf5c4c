// A client against whatever may be at the other end of the pipes, or in their place.
#include <sys/stat.h>

#include "ClientOutcome.h"
#include "SensorClient.h"

namespace {

using std::chrono::milliseconds;

// What an agent does when it has said what it has to say.
enum class Then : unsigned char { Stay, Leave, Repeat };

struct Part {
    const char* mpName;
    std::size_t mHears;  // how many bytes of the command
    std::string mSays;   // behind that; tag 0 stands for the command's
    Then mThen;
    const char* mpOutcome;
};

// Two pipes like an agent's, and a process that plays an agent until it is killed.
class HostileAgent {
  public:
    HostileAgent(const ZTCTestDirectory& acrDirectory, const Part& acrPart)
        : mCommands(make(acrDirectory / ZTTestCommandPipe, O_RDONLY)),
          mAnswers(make(acrDirectory / ZTTestOutputPipe, O_RDWR)),
          mChild([&] { play(acrPart); }) {
        fcntl(mCommands.get(), F_SETPIPE_SZ, 4096);  // is full before a command of many targets is whole
        const ZTCDescriptor lAnswers(std::move(mAnswers));  // they are the child's alone
        const ZTCDescriptor lCommands(std::move(mCommands));
    }

  private:
    static ZTCDescriptor make(const std::string& acrPath, int aMode) {
        mkfifo(acrPath.c_str(), 0600);
        return openPipe(acrPath, aMode);
    }
    void play(const Part& acrPart) const {
        const std::string lHeard = readBytes(mCommands, acrPart.mHears);
        std::string lSays = acrPart.mSays;
        if (const std::size_t lOurs = lSays.find("VRX1" + wordOf(0)); lOurs != std::string::npos) {
            lSays.replace(lOurs + 4, 4, lHeard.substr(4, 4));
        }
        do {
            writeAll(mAnswers, lSays);
        } while (acrPart.mThen == Then::Repeat);
        if (acrPart.mThen == Then::Stay) {
            pause();
        }
    }

    ZTCDescriptor mCommands;
    ZTCDescriptor mAnswers;
    ZTCTestChild mChild;
};

std::ptrdiff_t countDescriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

volatile std::sig_atomic_t sPipeSignals = 0;

TEST(SensorClientHostile, EveryAgentIsSurvivedInTime) {
    constexpr std::size_t lShort = 13;  // a Stop
    const std::string lLong(70000, 'o');
    const Part lParts[] = {
        {"good", lShort, successOf(0), Then::Stay, "done"},
        {"refuses", lShort, messageOf(0, bytesOf("01 1234")), Then::Stay, "Refused 4660"},
        {"noise", lShort, lLong, Then::Stay, "TimedOut"},
        {"others' without end", lShort, messageOf(1, lLong), Then::Repeat, "TimedOut"},
        {"4 GiB", lShort, "VRX1" + wordOf(0) + wordOf(0xffffffff) + lLong, Then::Stay, "MalformedAnswer"},
        {"ends in its answer", lShort, successOf(0).substr(0, 14), Then::Leave, "NoAgent"},
        {"ends in a command", 12, "", Then::Leave, "NoAgent"},
        {"silent", lShort, "", Then::Stay, "TimedOut"},
        {"deaf", 0, "", Then::Stay, "TimedOut"},
    };
    const auto lHandler = signal(SIGPIPE, [](int) { sPipeSignals = 1; });
    for (const Part& lrPart : lParts) {
        SCOPED_TRACE(lrPart.mpName);
        const std::string lExpected = lrPart.mpOutcome;
        const milliseconds lTimeout(lExpected == "TimedOut" ? 100 : 60000);
        const std::vector<ZTSSensorTarget> lTargets(ZTSensorMaxTargets);  // longer than the pipe
        const ZTCTestDirectory lDirectory;
        const auto lBefore = countDescriptors();
        {
            ZTCSensorClient lClient({lDirectory.getPath(), lTimeout, milliseconds(0)});
            const auto lStart = std::chrono::steady_clock::now();
            {
                const HostileAgent lAgent(lDirectory, lrPart);
                EXPECT_EQ(clientOutcomeOf([&] {
                              lrPart.mHears == lShort ? lClient.stop() : lClient.registerTargets(lTargets);
                          }),
                          lExpected);
            }
            const auto lTime = std::chrono::steady_clock::now() - lStart;
            EXPECT_TRUE(lExpected != "TimedOut" || lTime >= lTimeout);
            EXPECT_LT(lTime, std::chrono::seconds(ZTTestSoon));
            // Pipes that are of no use are not kept: only the claim on the directory.
            const bool lAreKept = lExpected == "done" || lExpected.starts_with("Refused");
            EXPECT_EQ(countDescriptors() - lBefore, lAreKept ? 3 : 1);
        }
        EXPECT_EQ(countDescriptors(), lBefore);
    }
    EXPECT_EQ(sPipeSignals, 0);
    signal(SIGPIPE, lHandler);
}

TEST(SensorClientHostile, WhatLiesInThePipesPlaceIsLookedAt) {
    using Path = const std::string&;
    const Part lDeaf{"", 0, "", Then::Stay, ""};
    const auto lOutcomeIn = [](Path acrDirectory) {
        return clientOutcomeOf([&] {
            ZTCSensorClient({acrDirectory, milliseconds(50), milliseconds(0)}).stop();
        });
    };
    std::ofstream lWritten;  // who writes to something else has no pipe
    const auto lMove = [](Path acrPath) { std::filesystem::rename(acrPath, acrPath + "2"); };
    const std::pair<std::function<void(Path)>, const char*> lRows[] = {
        {[](Path) {}, "TimedOut"},
        {lMove, "NoAgent"},
        {[&](Path acrPath) { lMove(acrPath), std::filesystem::create_symlink(acrPath + "2", acrPath); },
         "UnsafeFile"},
        {[&](Path acrPath) { lMove(acrPath), lWritten = std::ofstream(acrPath); }, "UnsafeFile"},
        {[](Path acrPath) { std::filesystem::create_hard_link(acrPath, acrPath + "2"); }, "UnsafeFile"},
        {[](Path acrPath) { chmod(acrPath.c_str(), 0610); }, "UnsafeFile"},
    };
    for (const auto& lrRow : lRows) {
        for (const char* const lpPipe : {ZTTestCommandPipe, ZTTestOutputPipe}) {
            SCOPED_TRACE(lpPipe + std::to_string(&lrRow - lRows));
            const ZTCTestDirectory lDirectory;
            const HostileAgent lAgent(lDirectory, lDeaf);
            lrRow.first(lDirectory / lpPipe);
            const auto lBefore = countDescriptors();
            EXPECT_EQ(lOutcomeIn(lDirectory.getPath()), lrRow.second);
            EXPECT_EQ(countDescriptors(), lBefore);
        }
    }
    const ZTCTestDirectory lDirectory;
    EXPECT_EQ(lOutcomeIn(lDirectory / "missing"), "NoAgent");
    HostileAgent(lDirectory, lDeaf);
    EXPECT_EQ(lOutcomeIn(lDirectory.getPath()), "NoAgent");  // pipes that nobody serves
    for (const mode_t lMode : {0700U, 0755U}) {              // the directory's; the pipes are the agent's
        chmod(lDirectory.getPath().c_str(), lMode);
        const ZTSTestEnd lEnd = runChild([&] {
            if (geteuid() == 0 && setgid(65534) == 0 && setuid(65534) == 0) {
                EXPECT_EQ(lOutcomeIn(lDirectory.getPath()), "NoPermission");
            }
        });
        EXPECT_EQ(lEnd.mStatus, 0) << lEnd.mOut;
    }
}

}  // namespace
