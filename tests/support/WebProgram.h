// vrx-web, run as a site runs it, over a store that has something of everything.
#pragma once

#include <optional>

#include "StoredIncidents.h"
#include "WebClient.h"

/// A run of vrx-web, which serves when this is made.
class ZTCWebRun : public ZTCTestChild {
  public:
    /// A command by all its words.
    struct Whole {
        Arguments mWords;
    };

    /// At a port of its own, unless told otherwise.
    explicit ZTCWebRun(const std::string& acrStore, const Arguments& acrArguments = {},
                       const Arguments& acrEnvironment = {})
        : ZTCWebRun(Whole{commandOf(acrStore, acrArguments)}, acrEnvironment) {}
    explicit ZTCWebRun(const Whole& acrCommand, const Arguments& acrEnvironment = {})
        : ZTCTestChild(acrCommand.mWords, environmentOf(acrEnvironment)) {
        EXPECT_TRUE(waitUntil([&] { return contains(getErr(), sServes) || !isAlive(); }));
        EXPECT_TRUE(isAlive()) << getErr();
        const std::string lErr = getErr();
        const std::size_t lAt = lErr.find(':', lErr.find(sServes) + sizeof sServes);
        mPort = lAt == std::string::npos ? 0 : static_cast<unsigned int>(atoi(lErr.c_str() + lAt + 1));
    }

    unsigned int getPort() const { return mPort; }
    void sendSignal(int aSignal) const { kill(getProcess(), aSignal); }
    int end() {
        sendSignal(SIGTERM);
        return waitForEnd();
    }
    /// An answer over a connection of its own.
    ZTSWebReply get(const std::string& acrPath, const std::string& acrMore = "") const {
        return ZTCWebClient(mPort).get(acrPath, acrMore);
    }
    /// Of /proc/PID/status, in KiB: "VmRSS", "VmHWM".
    std::uint64_t getMemory(const std::string& acrName) const {
        const std::string lStatus = readFile("/proc/" + std::to_string(getProcess()) + "/status");
        const std::size_t lAt = lStatus.find(acrName + ":");
        EXPECT_NE(lAt, std::string::npos);
        return std::strtoull(lStatus.c_str() + lAt + acrName.size() + 1, nullptr, 10);
    }
    std::size_t countDescriptors() const {
        using Files = std::filesystem::directory_iterator;
        return static_cast<std::size_t>(
            std::distance(Files("/proc/" + std::to_string(getProcess()) + "/fd"), Files()));
    }

    static Arguments commandOf(const std::string& acrStore, const Arguments& acrMore) {
        Arguments lCommand{ZT_TEST_WEB, "--store", acrStore, "--figures", "/nonexistent"};
        if (std::find(acrMore.begin(), acrMore.end(), "--listen") == acrMore.end()) {
            lCommand.insert(lCommand.end(), {"--listen", "127.0.0.1:0"});
        }
        lCommand.insert(lCommand.end(), acrMore.begin(), acrMore.end());
        return lCommand;
    }
    static Arguments environmentOf(const Arguments& acrMore) {
        Arguments lEnvironment{"NOTIFY_SOCKET", "RUNTIME_DIRECTORY", "JOURNAL_STREAM"};
        lEnvironment.insert(lEnvironment.end(), acrMore.begin(), acrMore.end());
        return lEnvironment;
    }

  private:
    static constexpr char sServes[] = "serving on ";
    unsigned int mPort = 0;
};

/// A store, which nobody writes any more.
class ZTCWebStore {
  public:
    ZTCWebStore() { make(mPath); }

    const std::string& getPath() const { return mPath; }
    const ZTCTestDirectory& getDirectory() const { return mDirectory; }

    static void make(const std::string& acrPath) {
        ZTSStoredIncidents lHost;
        ZTCStoreWriter lWriter(ZTHostStoreOptions(acrPath));
        lWriter.write(lHost.mBatch);
        lWriter.finish();
    }

  private:
    const ZTCTestDirectory mDirectory;
    const std::string mPath = mDirectory / "history.db";
};

struct ZTSWebStand {
    explicit ZTSWebStand(const ZTCTestChild::Arguments& acrArguments = {},
                         const ZTCTestChild::Arguments& acrEnvironment = {})
        : mWeb(mStore.getPath(), acrArguments, acrEnvironment) {}

    const ZTCWebStore mStore;
    ZTCWebRun mWeb;
};
