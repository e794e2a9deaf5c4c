// The agent in the foreground, in a runtime directory of its test's, and a sensor at its two pipes.
#pragma once

#include <sys/ioctl.h>

#include <algorithm>
#include <cerrno>
#include <set>
#include <sstream>

#include "TestSupport.h"

inline constexpr char ZTTestLog[] = "vrx-sca.log";
inline constexpr char ZTTestPidFile[] = "vrx-sca.pid";
inline constexpr char ZTTestStatistics[] = "vrx-sca.stats";
inline constexpr char ZTTestSensorFile[] = "vrx-sn.pid";
inline constexpr char ZTTestCommandPipe[] = "vrxscacmd.fifo";
inline constexpr char ZTTestOutputPipe[] = "vrxscaout.fifo";

/// Seconds in which what takes at most one is done on a busy machine too.
inline constexpr unsigned int ZTTestSoon = 10;

/// The bytes of hexadecimal digits; blanks between them are passed over.
inline std::string bytesOf(const std::string& acrDigits) {
    std::string lDigits;
    std::remove_copy(acrDigits.begin(), acrDigits.end(), std::back_inserter(lDigits), ' ');
    std::string lBytes;
    for (std::size_t lAt = 0; lAt < lDigits.size(); lAt += 2) {
        lBytes += static_cast<char>(std::stoi(lDigits.substr(lAt, 2), nullptr, 16));
    }
    return lBytes;
}

inline std::string wordOf(std::size_t aValue) {
    std::string lBytes;
    for (const unsigned int lShift : {24U, 16U, 8U, 0U}) {
        lBytes += static_cast<char>(aValue >> lShift & 0xff);
    }
    return lBytes;
}

inline std::string messageOf(std::size_t aTag, const std::string& acrBody) {
    return "VRX1" + wordOf(aTag) + wordOf(acrBody.size()) + acrBody;
}

/// The length that the header of a message tells.
inline std::size_t lengthIn(const std::string& acrMessage) {
    std::size_t lLength = 0;
    for (std::size_t lAt = 8; lAt < std::min<std::size_t>(acrMessage.size(), 12); ++lAt) {
        lLength = lLength << 8 | static_cast<unsigned char>(acrMessage[lAt]);
    }
    return lLength;
}

inline std::string stopOf(std::size_t aTag) {
    return messageOf(aTag, "\x02");
}

inline std::string successOf(std::size_t aTag) {
    return messageOf(aTag, std::string(5, '\0'));
}

inline std::set<std::string> namesIn(const ZTCTestDirectory& acrDirectory) {
    std::set<std::string> lNames;
    for (const auto& lrEntry : std::filesystem::directory_iterator(acrDirectory.getPath())) {
        lNames.insert(lrEntry.path().filename());
    }
    return lNames;
}

inline int unreadIn(const ZTCDescriptor& acrPipe) {
    int lUnread = -1;
    ioctl(acrPipe.get(), FIONREAD, &lUnread);
    return lUnread;
}

/// Waits until the other end of a pipe is there to be opened.
inline ZTCDescriptor openPipe(const std::string& acrPath, int aMode) {
    ZTCDescriptor lPipe;
    EXPECT_TRUE(waitUntil([&] {
        lPipe = ZTCDescriptor(open(acrPath.c_str(), aMode | O_NONBLOCK | O_CLOEXEC));
        return lPipe.isOpen();
    })) << acrPath;
    return lPipe;
}

inline void writeAll(const ZTCDescriptor& acrPipe, const std::string& acrBytes) {
    for (std::size_t lAt = 0; lAt < acrBytes.size();) {
        const ssize_t lWritten = write(acrPipe.get(), acrBytes.data() + lAt, acrBytes.size() - lAt);
        pollfd lPoll{acrPipe.get(), POLLOUT, 0};
        if (lWritten < 0 && (errno != EAGAIN || poll(&lPoll, 1, 60000) != 1)) {
            FAIL() << "cannot write: " << strerror(errno);
        }
        lAt += lWritten < 0 ? 0 : static_cast<std::size_t>(lWritten);
    }
}

/// Reads so many bytes; fewer when the writer goes away or a minute passes.
inline std::string readBytes(const ZTCDescriptor& acrPipe, std::size_t aLength) {
    std::string lBytes(aLength, '\0');
    std::size_t lAt = 0;
    while (lAt < aLength) {
        pollfd lPoll{acrPipe.get(), POLLIN, 0};
        const ssize_t lRead =
            poll(&lPoll, 1, 60000) == 1 ? read(acrPipe.get(), lBytes.data() + lAt, aLength - lAt) : 0;
        if (lRead <= 0) {
            break;
        }
        lAt += static_cast<std::size_t>(lRead);
    }
    lBytes.resize(lAt);
    return lBytes;
}

class ZTCTestAgent {
  public:
    using Options = std::vector<std::string>;

    /// acrEnvironment: what the child's environment has beyond what every agent needs. One with
    /// ZT_TEST_PERIODS is the agent whose periods can be set (TestPeriods.cpp).
    explicit ZTCTestAgent(const ZTCTestDirectory& acrDirectory, const Options& acrOptions = {},
                          const Options& acrEnvironment = {})
        : mrDirectory(acrDirectory),
          mChild(commandOf({"-D", "false"}, acrOptions, programFor(acrEnvironment)),
                 environmentOf(acrDirectory, acrEnvironment)) {}

    static const char* programFor(const Options& acrEnvironment) {
        const auto lSets = [](const std::string& acrEntry) {
            return acrEntry.starts_with("ZT_TEST_PERIODS");
        };
        return std::ranges::any_of(acrEnvironment, lSets) ? ZT_TEST_AGENT : ZT_VRX_SCA;
    }
    static Options commandOf(Options aCommand, const Options& acrMore, const char* apProgram = ZT_VRX_SCA) {
        aCommand.insert(aCommand.begin(), apProgram);
        aCommand.insert(aCommand.end(), acrMore.begin(), acrMore.end());
        return aCommand;
    }
    static Options environmentOf(const ZTCTestDirectory& acrDirectory, const Options& acrMore = {}) {
        Options lEnvironment{"ZT_VRX_SENSOR_DIR=" + acrDirectory.getPath(), "NOTIFY_SOCKET",
                             "ZT_LIBDFC=" ZT_PROVIDER_MINIMAL};
        lEnvironment.insert(lEnvironment.end(), acrMore.begin(), acrMore.end());
        return lEnvironment;
    }

    pid_t getProcess() const { return mChild.getProcess(); }
    bool isAlive() const { return mChild.isAlive(); }
    std::string getErr() const { return mChild.getErr(); }
    std::string getLog() const { return readFile(mrDirectory / ZTTestLog); }
    void sendSignal(int aSignal) const { kill(mChild.getProcess(), aSignal); }
    int waitForEnd(unsigned int aSeconds = 120) { return mChild.waitForEnd(aSeconds); }

    /// Waits for an end in order, of which nothing but the log is left.
    void expectEnd(const std::string& acrRecord = "ScopeAgent System exiting", unsigned int aSeconds = 120) {
        EXPECT_EQ(waitForEnd(aSeconds), 0);
        EXPECT_TRUE(contains(getLog(), acrRecord)) << acrRecord << " is not in\n" << getLog();
        EXPECT_EQ(namesIn(mrDirectory), std::set<std::string>{ZTTestLog});
    }
    void stop() {
        sendSignal(SIGTERM);
        expectEnd();
    }

  private:
    const ZTCTestDirectory& mrDirectory;
    ZTCTestChild mChild;
};

/// Opens both pipes, as soon as the agent serves them.
class ZTCTestSensor {
  public:
    explicit ZTCTestSensor(const ZTCTestDirectory& acrDirectory)
        : mCommands(openPipe(acrDirectory / ZTTestCommandPipe, O_WRONLY)),
          mResponses(openPipe(acrDirectory / ZTTestOutputPipe, O_RDONLY)) {}

    const ZTCDescriptor& getCommands() const { return mCommands; }
    const ZTCDescriptor& getResponses() const { return mResponses; }
    void closeCommands() { ZTCDescriptor lClosed(std::move(mCommands)); }

    void send(const std::string& acrBytes) const { writeAll(mCommands, acrBytes); }
    /// Sends the bytes and waits until the agent has read them.
    void sendAndSeeRead(const std::string& acrBytes) const {
        send(acrBytes);
        EXPECT_TRUE(waitUntil([&] { return unreadIn(mCommands) == 0; }));
    }
    std::string receive() const {
        const std::string lHeader = readBytes(mResponses, 12);
        return lHeader + readBytes(mResponses, lengthIn(lHeader));
    }
    std::string ask(const std::string& acrCommand) const {
        send(acrCommand);
        return receive();
    }
    bool hasResponseWithin(int aMilliseconds) const {
        pollfd lPoll{mResponses.get(), POLLIN, 0};
        return poll(&lPoll, 1, aMilliseconds) == 1;
    }

  private:
    ZTCDescriptor mCommands;
    ZTCDescriptor mResponses;
};
