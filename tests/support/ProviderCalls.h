// A provider by the table that it exports, and what it has called back with.
#pragma once

#include <dlfcn.h>

#include <atomic>
#include <map>
#include <mutex>

#include "SimClient.h"
#include "libdfc_provider.h"

/// What the callbacks have been given. It lives on: a fault may call back late.
struct ZTSTestCalls {
    std::mutex mMutex;
    std::string mTexts;  ///< of the first that nobody has taken
    std::map<std::uint32_t, unsigned int> mOfBoard;
    std::atomic<unsigned int> mByMaskEntered{0}, mCount{0}, mInside{0};
    std::atomic<bool> mHold{false};  ///< lets none return
};
inline ZTSTestCalls& ZTTestCalls = *new ZTSTestCalls;

inline std::string digitsOf(const void* apBytes, std::size_t aSize) {
    return digitsOf(std::string(static_cast<const char*>(apBytes), aSize));
}

inline void noteCall(std::uint32_t aBoard, const std::string& acrText) {
    ++ZTTestCalls.mInside;
    std::unique_lock<std::mutex> lLock(ZTTestCalls.mMutex);
    if (ZTTestCalls.mTexts.size() < 10000) {
        ZTTestCalls.mTexts += (ZTTestCalls.mTexts.empty() ? "" : ", ") + acrText;
    }
    ++ZTTestCalls.mOfBoard[aBoard];
    lLock.unlock();
    for (++ZTTestCalls.mCount; ZTTestCalls.mHold;) {
        std::this_thread::yield();
    }
    --ZTTestCalls.mInside;
}

inline void onTestEvent(std::uint32_t aBoard, HBA_wwn aPort, std::uint32_t aCategory,
                        std::uint32_t aSubcategory, void* apContext, const ZT_event* apEvent) {
    const std::uint32_t lPayload = apEvent->total_length - ZT_EVENT_HEADER;
    noteCall(aBoard, std::to_string(aCategory) + "/" + std::to_string(aSubcategory) + " " +
                         static_cast<const char*>(apContext) + std::to_string(aBoard) + " " +
                         digitsOf(aPort.wwn, 8) + " " + std::to_string(lPayload) + " " +
                         (apEvent->descriptor == nullptr ? "null"
                          : lPayload > 1024              ? "lie"
                                                         : digitsOf(apEvent->descriptor->payload, lPayload)));
}

inline void onTestMask(std::uint32_t aBoard, const void* apData, std::uint32_t aLength) {
    ++ZTTestCalls.mByMaskEntered;
    noteCall(aBoard, "mask " + std::to_string(aBoard) + " " + std::to_string(aLength) + " " +
                         (apData == nullptr ? "null" : digitsOf(apData, aLength)));
}

inline std::string takeCalls() {
    const std::lock_guard<std::mutex> lLock(ZTTestCalls.mMutex);
    return std::exchange(ZTTestCalls.mTexts, "");
}

inline unsigned int countCalls(std::uint32_t aBoard) {
    const std::lock_guard<std::mutex> lLock(ZTTestCalls.mMutex);
    return ZTTestCalls.mOfBoard[aBoard];
}

/// The table of a provider that is to see this environment. No calls have been noted.
inline const ZT_libdfc_provider* loadProvider(const char* apPath,
                                              const ZTCTestAgent::Options& acrEnvironment) {
    for (const std::string& lrEntry : acrEnvironment) {
        const std::size_t lAt = lrEntry.find('=');
        setenv(lrEntry.substr(0, lAt).c_str(), lrEntry.c_str() + lAt + 1, 1);
    }
    takeCalls();
    ZTTestCalls.mOfBoard.clear();
    ZTTestCalls.mByMaskEntered = 0;
    ZTTestCalls.mCount = 0;
    void* const lpLibrary = dlopen(apPath, RTLD_NOW | RTLD_LOCAL);
    EXPECT_NE(lpLibrary, nullptr) << dlerror();
    const auto lpEntry = reinterpret_cast<decltype(&zt_libdfc_provider)>(dlsym(lpLibrary, ZT_LIBDFC_ENTRY));
    EXPECT_EQ(lpEntry(ZT_LIBDFC_ABI + 1), nullptr);
    return lpEntry(ZT_LIBDFC_ABI);
}

/// Ends the registration whose callback is held, which it waits for.
template <class End>
void expectToWaitForItsCallback(const End& acrEnd) {
    std::atomic<pid_t> lThread{0};
    std::atomic<bool> lHasReturned{false};
    std::thread lEnd([&] {
        lThread = gettid();
        EXPECT_EQ(acrEnd(), 0U);
        EXPECT_EQ(ZTTestCalls.mInside, 0U);
        lHasReturned = true;
    });
    EXPECT_TRUE(waitUntil([&] {
        return lHasReturned ||
               contains(readFile("/proc/self/task/" + std::to_string(lThread) + "/stat"), ") S ");
    }));
    ZTTestCalls.mHold = false;
    lEnd.join();
}
