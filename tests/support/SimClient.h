// The simulated library inside a running agent: a client of its socket, and what the agent's fetches answer.
#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <cstdint>

#include "TestFetch.h"

/// Digits without the blanks that part them for a reader.
inline std::string withoutBlanks(std::string aText) {
    std::erase(aText, ' ');
    return aText;
}

/// The records of a log that have one of the parts, each as a line of its tag and its text.
inline std::string recordsWith(const std::string& acrLog, const std::vector<std::string>& acrParts) {
    std::istringstream lLog(acrLog);
    std::string lRecords;
    for (std::string lLine; std::getline(lLog, lLine);) {
        if (std::any_of(acrParts.begin(), acrParts.end(),
                        [&](const std::string& acrPart) { return contains(lLine, acrPart); })) {
            const std::size_t lTag = lLine.find(" -") + 1;
            lRecords += lLine.substr(lTag, 4) + lLine.substr(lLine.find(": ", lTag) + 2) + "\n";
        }
    }
    return lRecords;
}

/// The scenarios that are shipped.
inline std::vector<std::string> shippedScenarios() {
    std::vector<std::string> lFiles;
    for (const auto& lrFile :
         std::filesystem::recursive_directory_iterator(ZT_SOURCE_DIR "/libdfc/sim/scenarios")) {
        if (lrFile.is_regular_file()) {
            lFiles.push_back(lrFile.path());
        }
    }
    return lFiles;
}

/// What the simulated library is given with its start, and a client of its socket.
class ZTCTestSim {
  public:
    explicit ZTCTestSim(const std::string& acrScenario) {
        writeFile(mDirectory / "scenario", acrScenario);
        const sockaddr_un lAny{AF_UNIX, ""};  // the system chooses an address, to be answered at
        EXPECT_EQ(bind(mSocket.get(), reinterpret_cast<const sockaddr*>(&lAny), sizeof lAny.sun_family), 0);
    }

    ZTCTestAgent::Options getEnvironment(ZTCTestAgent::Options aMore = {}) const {
        // After a signal the agent ends without a close, and nobody joins the library's threads.
        const char* const lpOptions = getenv("TSAN_OPTIONS");
        aMore.insert(aMore.end(), {"ZT_LIBDFC=" ZT_DFC_SIM, "ZT_LIBDFC_SIM=" + (mDirectory / "scenario"),
                                   "ZT_LIBDFC_SIM_CONTROL=" + (mDirectory / "socket"),
                                   std::string("TSAN_OPTIONS=") + (lpOptions != nullptr ? lpOptions : "") +
                                       " report_thread_leaks=0"});
        return aMore;
    }

    /// Has the lines played in their order, and returns the answer when they have been. A minute at the most.
    std::string ask(const std::string& acrLines) const {
        sockaddr_un lAddress{AF_UNIX, ""};
        (mDirectory / "socket").copy(lAddress.sun_path, sizeof lAddress.sun_path - 1);
        const auto lIsThere = [&] {
            return connect(mSocket.get(), reinterpret_cast<const sockaddr*>(&lAddress), sizeof lAddress) == 0;
        };
        pollfd lPoll{mSocket.get(), POLLIN, 0};
        int lLooks = 600;
        if (!lIsThere() || send(mSocket.get(), acrLines.data(), acrLines.size(), 0) < 0) {
            lLooks = 0;
        }
        while (lLooks > 0 && poll(&lPoll, 1, 100) != 1) {
            lLooks = lIsThere() ? lLooks - 1 : 0;
        }
        EXPECT_GT(lLooks, 0) << "no answer to " << acrLines;
        std::string lAnswer(65536, '\0');
        const ssize_t lRead = recv(mSocket.get(), lAnswer.data(), lAnswer.size(), MSG_DONTWAIT);
        lAnswer.resize(lRead < 0 ? 0 : static_cast<std::size_t>(lRead));
        return lAnswer;
    }
    void play(const std::string& acrLines) const { EXPECT_EQ(ask(acrLines), "ok\n") << acrLines; }
    std::uint64_t getSent() const {
        constexpr char lLabel[] = "events sent=";
        const std::string lReport = ask("report");
        EXPECT_TRUE(lReport.starts_with(lLabel)) << lReport;
        return std::strtoull(lReport.c_str() + sizeof lLabel - 1, nullptr, 10);
    }

  private:
    ZTCTestDirectory mDirectory;  // not the agent's, which is to be clean in the end
    ZTCDescriptor mSocket{socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
};

inline std::uint64_t occurrencesIn(const std::vector<ZTSTestList>& acrLists) {
    std::uint64_t lSum = 0;
    for (const ZTSTestList& lrList : acrLists) {
        for (const ZTSTestRecord& lrRecord : lrList.mRecords) {
            lSum += lrRecord.mOccurrences;
        }
    }
    return lSum;
}

/// An agent with the simulated library, and a sensor.
struct ZTSTestStand {
    explicit ZTSTestStand(const ZTCTestAgent::Options& acrOptions = {}, const std::string& acrScenario = "",
                          const std::string& acrParent = "/tmp",
                          const ZTCTestAgent::Options& acrEnvironment = {})
        : mDirectory(acrParent),
          mSim(acrScenario),
          mAgent(mDirectory, acrOptions, mSim.getEnvironment(acrEnvironment)),
          mSensor(mDirectory) {}
    ~ZTSTestStand() { signal(SIGPIPE, mPipeHandler); }
    ZTSTestStand(const ZTSTestStand&) = delete;
    ZTSTestStand& operator=(const ZTSTestStand&) = delete;

    /// The body of the response.
    std::string ask(const std::string& acrBody) {
        const std::string lResponse = mSensor.ask(messageOf(++mTag, acrBody));
        EXPECT_EQ(lResponse.substr(0, 8), messageOf(mTag, "").substr(0, 8));
        return lResponse.substr(std::min<std::size_t>(lResponse.size(), 12));
    }
    std::string askToStart(std::size_t aCeiling = 65536) { return ask('\0' + wordOf(aCeiling)); }
    void start(std::size_t aCeiling = 65536) { EXPECT_EQ(askToStart(aCeiling), mSuccess); }
    void stop() { EXPECT_EQ(ask("\x02"), mSuccess); }
    std::vector<ZTSTestList> fetch() { return ZTCTestFetch(ask("\x01")).getLists(); }

    const std::string mSuccess = std::string(5, '\0');
    ZTCTestDirectory mDirectory;
    ZTCTestSim mSim;
    ZTCTestAgent mAgent;
    ZTCTestSensor mSensor;
    const sighandler_t mPipeHandler = signal(SIGPIPE, SIG_IGN);  // an agent that is gone fails the test alone
    unsigned int mTag = 0;
};
