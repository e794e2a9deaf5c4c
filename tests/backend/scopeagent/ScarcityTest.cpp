// Memory, or a system call, that is short from any moment of a run on: the agent ends in order or goes on,
// and is never ended by a signal. As a test a spread of moments; all of them with ZT_TORTURE=all, which
// tools/torture/ sets.
#include <optional>

#include "../../libdfc/fchost/FcTest.h"
#include "SimClient.h"

namespace {

using Options = ZTCTestAgent::Options;

constexpr char sScenario[] =
    "adapters count=2\n"
    "wait registrations\n"
    "plogi from=5006016000000a0b to=10:00:00:25:b5:01:00:00 times=3\n"
    "storm queue-full boards=2 port=50:06:01:60:3b:20:11:0c lun=12 rate=5000 for=10ms threads=2\n"
    "wait storms\n";

// What a run can come to.
enum class Outcome { Served, Ended, Asserted, Fault };

// A provider with all that it looks at.
struct Provider {
    virtual ~Provider() = default;
    virtual Options getEnvironment() const = 0;
    virtual void makeEvents() const {}
};
struct SimProvider : Provider {
    SimProvider() { writeFile(mDirectory / "scenario", sScenario); }
    Options getEnvironment() const override {
        return {"ZT_LIBDFC=" ZT_DFC_SIM, "ZT_LIBDFC_SIM=" + (mDirectory / "scenario")};
    }
    ZTCTestDirectory mDirectory;
};
struct FcProvider : Provider {
    FcProvider() {
        mTree.addHost(3);
        mTree.addHost(4);
    }
    Options getEnvironment() const override {
        return {"ZT_LIBDFC=" ZT_DFC_FCHOST, "ZT_LIBDFC_FCHOST_SYSFS=" + mTree.getPath(),
                "ZT_LIBDFC_FCHOST_PERIOD=0.01", "ZT_LIBDFC_FCHOST_LOG=" + mTree.getPath() + "/log"};
    }
    void makeEvents() const override {
        mTree.set("fc_host/host3/port_state", "Linkdown\n");
        mTree.set("fc_host/host4/statistics/link_failure_count", "0x9\n");
        mTree.add("fc_remote_ports/rport-3:0-1", {{"port_id", "0x10203"}, {"port_state", "Online"}});
    }
    ZTCFcTestTree mTree;
};

// One run, from the start to the end that the sensor asks for.
class Run {
  public:
    Run(const Provider& acrProvider, const std::string& acrScarce) : mrProvider(acrProvider) {
        Options lEnvironment = acrProvider.getEnvironment();
        lEnvironment.insert(lEnvironment.end(), {"LD_PRELOAD=" ZT_SCARCITY, "ZT_SCARCE=" + acrScarce,
                                                 "ZT_SCARCE_MARK=" + (mOther / "mark")});
        mAgent.emplace(mDirectory, Options{}, lEnvironment);
    }

    Outcome play() {
        const bool lIsServed = open() && ask('\0' + wordOf(65536)) && (mrProvider.makeEvents(), true) &&
                               ask("\x01") && ask("\x01") && ask("\x02") && ask("\x04");
        if (!lIsServed && mAgent->isAlive()) {
            mAgent->sendSignal(SIGTERM);
            mReason += "had to be ended; ";
        }
        if (!waitUntil([&] { return !mAgent->isAlive(); }, 15)) {
            mReason += "hangs; ";
            return Outcome::Fault;
        }
        const int lStatus = mAgent->waitForEnd();
        std::set<std::string> lLeft = namesIn(mDirectory);
        lLeft.erase(ZTTestLog);
        const std::string lSaid = mAgent->getErr() + mAgent->getLog();
        mReason += "status " + std::to_string(lStatus) + ", " + std::to_string(lLeft.size()) +
                   " files left, after " + std::to_string(mAsked) + " answers; " +
                   lSaid.substr(lSaid.size() - std::min<std::size_t>(lSaid.size(), 600));
        if (lStatus == 1 && contains(lSaid, " -H- ")) {
            return Outcome::Asserted;
        }
        if (lStatus != 0 || (lSaid.empty() && !lIsServed)) {
            return Outcome::Fault;
        }
        return lIsServed ? Outcome::Served : Outcome::Ended;
    }
    bool hasFailed() const { return std::filesystem::exists(mOther / "mark"); }
    const std::string& getReason() const { return mReason; }

  private:
    bool open() {
        const auto lIsOpen = [&](ZTCDescriptor& arPipe, const char* apName, int aMode) {
            if (!arPipe.isOpen()) {
                arPipe = ZTCDescriptor(::open((mDirectory / apName).c_str(), aMode | O_NONBLOCK));
            }
            return arPipe.isOpen();
        };
        const auto lAreOpen = [&] {
            return lIsOpen(mCommands, ZTTestCommandPipe, O_WRONLY) &&
                   lIsOpen(mResponses, ZTTestOutputPipe, O_RDONLY);
        };
        return waitUntil([&] { return !mAgent->isAlive() || lAreOpen(); }, 10) && mResponses.isOpen();
    }
    bool ask(const std::string& acrBody) {
        const std::string lCommand = messageOf(++mTag, acrBody);
        if (write(mCommands.get(), lCommand.data(), lCommand.size()) !=
            static_cast<ssize_t>(lCommand.size())) {
            return false;
        }
        std::string lResponse;
        const bool lIsWhole = waitUntil(
            [&] {
                char lBytes[65536];
                const ssize_t lRead = read(mResponses.get(), lBytes, sizeof lBytes);
                lResponse.append(lBytes, lRead > 0 ? static_cast<std::size_t>(lRead) : 0);
                return lResponse.size() >= 12 ? lResponse.size() >= 12 + lengthIn(lResponse)
                                              : !mAgent->isAlive();
            },
            10);
        const bool lIsAnswer = lIsWhole && lResponse.size() >= 12;
        mAsked += lIsAnswer ? 1 : 0;
        return lIsAnswer;
    }

    const Provider& mrProvider;
    ZTCTestDirectory mDirectory;
    ZTCTestDirectory mOther;
    std::optional<ZTCTestAgent> mAgent;
    ZTCDescriptor mCommands;
    ZTCDescriptor mResponses;
    unsigned int mTag = 0;
    unsigned int mAsked = 0;
    std::string mReason;
};

// Runs with the call failing from each number on, up to the first from which none has failed; as a quick test
// with gaps that grow. aRest: only that call, and the errno (Scarcity.c).
template <class ProviderKind>
void tryAll(const std::string& acrWhat, const std::string& acrRest, double aGap) {
    const sighandler_t lPipe = signal(SIGPIPE, SIG_IGN);
    std::map<Outcome, unsigned int> lCounts;
    bool lHasFailed = true;
    for (double lFrom = 1; lHasFailed; lFrom = std::max(lFrom + 1, lFrom * ZTTestRounds(aGap, 0.0))) {
        const ProviderKind lProvider;
        const std::string lScarce =
            acrWhat + ":" + std::to_string(static_cast<unsigned long>(lFrom)) + acrRest;
        Run lRun(lProvider, lScarce);
        const Outcome lOutcome = lRun.play();
        ++lCounts[lOutcome];
        EXPECT_TRUE(lOutcome != Outcome::Fault) << lScarce << ": " << lRun.getReason();
        lHasFailed = lRun.hasFailed();
    }
    signal(SIGPIPE, lPipe);
    printf("%-24s %5u went on, %5u ended in order, %5u by an assertion, %5u faults\n",
           (acrWhat + acrRest).c_str(), lCounts[Outcome::Served], lCounts[Outcome::Ended],
           lCounts[Outcome::Asserted], lCounts[Outcome::Fault]);
    fflush(stdout);
}

class Scarcity : public ::testing::Test {
  protected:
    void SetUp() override {
        if (ZTIsSanitized) {
            GTEST_SKIP() << "the sanitizer has functions of its own for these";
        }
    }
};

TEST_F(Scarcity, OfMemoryEndsTheAgentInOrderOrNotAtAll) {
    for (const char* const lpRest : {"", ":1"}) {
        tryAll<SimProvider>("memory", lpRest, 1.25);
        tryAll<FcProvider>("memory", lpRest, 1.25);
    }
}

TEST_F(Scarcity, OfWhatTheSystemGivesEndsTheAgentInOrderOrNotAtAll) {
    for (const char* const lpCall :
         {"open",   "openat", "fstat",     "stat",    "lstat",         "chmod",         "unlink",
          "pipe2",  "mkfifo", "socket",    "poll",    "ppoll",         "read",          "write",
          "writev", "pwrite", "ftruncate", "eventfd", "epoll_create1", "pthread_create"}) {
        tryAll<SimProvider>(lpCall, ":1:5", 1.8);  // EIO
        if (ZTTestRounds(false, true)) {
            for (const char* const lpRest : {":0:5", ":1:12", ":0:12", ":1:24", ":0:24"}) {  // ENOMEM, EMFILE
                tryAll<SimProvider>(lpCall, lpRest, 1);
            }
            tryAll<FcProvider>(lpCall, ":0:5", 1);
        }
    }
}

}  // namespace
