// The agent's event collection in the test's own process: boards of a test's vendor library, events that come
// in as the library delivers them, commands, and what a fetch hands out.
#pragma once

#include <memory>

#include "Log.h"
#include "ScopeAgentSystem.h"
#include "SystemMain.h"
#include "TestFetch.h"

/// An event as the vendor library delivers it.
struct ZTSTestEvent {
    unsigned int mBoard;
    unsigned int mCategory;  ///< as it arrives
    unsigned int mSubcategory;
    std::vector<unsigned char> mPayload{};
    /// By the callback of its mask, which only link, temperature and RSCN have.
    bool mIsByMask = false;
    bool mHasDescriptor = true;

    bool isRscn() const { return mCategory == 1 && mSubcategory == 32; }

    /// Nothing is allocated here.
    void deliver() const {
        using Handler = ZTCScopeAgentProtocolHandler;
        static constexpr unsigned char sContext[ZT_DFC_LINK_CONTEXT]{};
        const auto lLength = static_cast<unsigned int>(mPayload.size());
        if (!mIsByMask) {
            const ZT_event_descriptor lDescriptor{0, mPayload.data()};
            const ZT_event lEvent{1, ZT_EVENT_HEADER + lLength, mHasDescriptor ? &lDescriptor : nullptr};
            Handler::ScopeCb_Generic(mBoard, HBA_wwn{}, mCategory, mSubcategory, nullptr, &lEvent);
        } else if (mCategory == 1) {
            Handler::ScopeCb_DfcRscn(mBoard, mPayload.data(), lLength);
        } else if (mSubcategory == 2) {
            Handler::ScopeCb_DfcLink(mBoard, sContext, sizeof sContext);
        } else {
            Handler::ScopeCb_DfcTemp(mBoard, nullptr, 0);
        }
    }
};

/// The name of a remote port, 8 bytes.
inline std::string ZTTestName(unsigned int aNumber) {
    return std::string("\x21\0\0\x25", 4) + wordOf(aNumber);
}

/// Four bytes, up to two names, and words in the host's order behind them.
inline std::vector<unsigned char> ZTTestPayload(const std::string& acrNames,
                                                std::initializer_list<unsigned int> aWords = {}) {
    const std::string lHead = "\x03xyz" + acrNames;
    std::vector<unsigned char> lPayload(lHead.begin(), lHead.end());
    for (const unsigned int lWord : aWords) {
        const std::size_t lAt = lPayload.size();
        lPayload.resize(lAt + sizeof lWord);
        memcpy(&lPayload[lAt], &lWord, sizeof lWord);
    }
    return lPayload;
}

/// An RSCN of these pages.
inline std::vector<unsigned char> ZTTestRscn(const std::vector<unsigned int>& acrPages) {
    std::string lBytes = wordOf(0x61040000 + 4 + 4 * acrPages.size());
    for (const unsigned int lPage : acrPages) {
        lBytes += wordOf(lPage);
    }
    return {lBytes.begin(), lBytes.end()};
}

inline ZTSTestEvent ZTTestLink(unsigned int aBoard) {
    return {aBoard, 8, 2, {}, true};
}

/// One event of each kind of the first board, as the agent registers for it.
inline std::vector<ZTSTestEvent> ZTTestOneOfEach(const std::string& acrName) {
    std::vector<ZTSTestEvent> lEvents;
    for (const ZTSScopeEventFacts& lrKind : ZTScopeEventFacts) {
        ZTSTestEvent lEvent{0, lrKind.mCategory, lrKind.mSubcategory,
                            ZTTestPayload(acrName, {1, 2, 3, 4, 5})};
        if (lEvent.isRscn()) {
            lEvent.mPayload = ZTTestRscn({0x010203, 0x020304, 0x020304});
        }
        lEvent.mIsByMask = lEvent.isRscn() || (lrKind.mCategory == 8 && lrKind.mSubcategory > 1);
        lEvents.push_back(lEvent);
    }
    return lEvents;
}

/// The process's agent, set up but for its threads. One at a time, with the log open: inCollection below.
class ZTCTestCollection {
  public:
    ZTCTestCollection(const ZTCTestDirectory& acrDirectory, unsigned int aBoards)
        : mLog(acrDirectory / ZTTestLog) {
        setBoards(aBoards);
        setenv("ZT_LIBDFC", ZT_PROVIDER_BAD, 1);
        setenv("ZT_VRX_SENSOR_DIR", acrDirectory.getPath().c_str(), 1);
        mSystem.preInit();
        mSystem.init();
        setSystemObject(&mSystem);
        setLogCode(0);
    }
    ~ZTCTestCollection() {
        setSystemObject(nullptr);
        mSystem.makeThreadsToExit();
        mSystem.destroyThreads();
        mSystem.destroy();
    }
    ZTCTestCollection(const ZTCTestCollection&) = delete;
    ZTCTestCollection& operator=(const ZTCTestCollection&) = delete;

    ZTCScopeAgentSystem& getSystem() { return mSystem; }
    /// The adapters that the vendor library tells of from now on.
    static void setBoards(unsigned int aCount) { setenv("ZT_BAD_BOARDS", std::to_string(aCount).c_str(), 1); }

    static ZTCPointer<ZTCBuffer> commandOf(const std::string& acrBytes) {
        const auto lCommand = makePointer<ZTCBuffer>(static_cast<unsigned int>(acrBytes.size()));
        memcpy(lCommand->extend(lCommand->getRoom()), acrBytes.data(), acrBytes.size());
        return lCommand;
    }
    static std::string textOf(const ZTCPointer<ZTCBuffer>& acrBuffer) {
        return {reinterpret_cast<const char*>(acrBuffer->getBytes()), acrBuffer->getLength()};
    }
    std::string ask(const std::string& acrCommand) {
        ZTCPointer<ZTCBuffer> lResponse;
        mSystem.getScopeAgentProtocolHandler()->process(commandOf(acrCommand), lResponse);
        return textOf(lResponse);
    }
    ZTCTestFetch fetch() { return ZTCTestFetch(ask("\x01")); }

    /// What was logged since the last call.
    std::string takeLog() {
        flushLog();
        std::string lNew;
        for (std::string lLine; std::getline(mLog, lLine);) {
            lNew += lLine + '\n';
        }
        mLog.clear();
        return lNew;
    }

  private:
    std::ifstream mLog;
    ZTCScopeAgentSystem mSystem{"ScopeAgent"};
};

/// The counts of a reason in the log's notices of what was lost.
inline unsigned int ZTTestLostIn(const std::string& acrLog, const char* apReason) {
    unsigned int lLost = 0;
    for (std::size_t lAt = 0; (lAt = acrLog.find("Events lost since", lAt)) != std::string::npos; ++lAt) {
        const std::size_t lReason = acrLog.find(apReason, lAt) - 1;
        lLost += static_cast<unsigned int>(std::stoul(acrLog.substr(acrLog.rfind(' ', lReason - 1) + 1)));
    }
    return lLost;
}

/// Runs the work with a collection of so many boards, in a process of its own that has to end well. Nothing
/// is logged until it says so.
inline void inCollection(unsigned int aBoards, const std::function<void(ZTCTestCollection&)>& acrWork) {
    const ZTCTestDirectory lDirectory;
    const ZTSTestEnd lEnd = runChild([&] {
        setLogFilePath((lDirectory / ZTTestLog).c_str());
        openLog();
        ZTCTestCollection lCollection(lDirectory, aBoards);
        acrWork(lCollection);
    });
    EXPECT_EQ(lEnd.mStatus, 0) << lEnd.mOut << lEnd.mErr;
}
