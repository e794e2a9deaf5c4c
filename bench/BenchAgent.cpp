#include "BenchAgent.h"

#include <sched.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdlib>
#include <new>
#include <string>

#include "LibdfcCallbacks.h"
#include "ScopeAgentEvents.h"
#include "ScopeAgentSystem.h"
#include "SystemMain.h"

namespace {

constexpr char sFile[] = "BenchAgent";

constexpr unsigned int sAdapters = 2;

constinit thread_local std::uint64_t tAllocations = 0;

// A directory for files, gone at the end.
class Directory {
  public:
    Directory() {
        char lName[] = "/tmp/zt-bench-XXXXXX";
        mName = mkdtemp(lName) != nullptr ? lName : "/tmp";
    }
    ~Directory() {
        for (const char* lpFile : {"agent.log", "agent.log.1", "basic.log", "async.log", "write.log"}) {
            unlink((mName + "/" + lpFile).c_str());
        }
        rmdir(mName.c_str());
    }
    Directory(const Directory&) = delete;
    Directory& operator=(const Directory&) = delete;

    const std::string& getName() const { return mName; }

  private:
    std::string mName;
};

ZTCScopeAgentSystem& sAgent() {
    static ZTCScopeAgentSystem& srAgent = []() -> ZTCScopeAgentSystem& {
        ztbench::useLog();
        setenv("ZT_LIBDFC", ZT_DFC_SIM, 1);
        auto* const lpAgent = new ZTCScopeAgentSystem(ZTCString("bench"));
        setSystemObject(lpAgent);
        lpAgent->initLibdfc();
        lpAgent->initScopeAgentHandlers();
        lpAgent->getCollection().setDataCeiling(1024);
        OsReturnLargeBlocks();
        return *lpAgent;
    }();
    return srAgent;
}

// What a fetch takes.
ZTCScopeAgentRecordLists& sDetached() {
    static ZTCScopeAgentRecordLists& srLists = *new ZTCScopeAgentRecordLists;
    return srLists;
}

}  // namespace

// The linker leads the calls of malloc and realloc in this program to the functions with __wrap_.
extern "C" {
void* __real_malloc(std::size_t);
void* __real_realloc(void*, std::size_t);
void* __wrap_malloc(std::size_t);
void* __wrap_realloc(void*, std::size_t);
}

void* __wrap_malloc(std::size_t aSize) {
    ++tAllocations;
    return __real_malloc(aSize);
}

void* __wrap_realloc(void* apBlock, std::size_t aSize) {
    ++tAllocations;
    return __real_realloc(apBlock, aSize);
}

void* operator new(std::size_t aSize, const std::nothrow_t&) noexcept {
    return __wrap_malloc(aSize);
}
void* operator new(std::size_t aSize) {
    void* const lpBlock = __wrap_malloc(aSize);
    return lpBlock != nullptr ? lpBlock : throw std::bad_alloc();
}
void operator delete(void* apBlock) noexcept {
    free(apBlock);
}
void operator delete(void* apBlock, std::size_t) noexcept {
    free(apBlock);
}

std::uint64_t ztbench::allocations() {
    return tAllocations;
}

// ---- Events ----

void ZTCBenchEvent::deliver(unsigned int aBoard) const {
    static const ZT_generic_callback sCallback = LibdfcWrap(ZTCScopeAgentProtocolHandler::ScopeCb_Generic);
    sCallback(aBoard, {}, mCategory, mSubcategory, nullptr, &mEvent);
}

void ZTCBenchEvent::deliverAboveLimit() const {
    sProcessScopeEvent(sAgent(), {}, {0, nullptr, mCategory, mSubcategory, mPayload, mLength});
}

// ---- The log ----

void ztbench::useAgent() {
    sAgent();
}

std::string ztbench::logFile(const char* apName) {
    static const Directory sDirectory;
    return sDirectory.getName() + "/" + apName;
}

void ztbench::useLog() {
    static const bool sIsOpen = [] {
        setLogFilePath(logFile().c_str());
        setLogLimit(64);
        return openLog();
    }();
    static_cast<void>(sIsOpen);
}

// A writer that has nothing to do sleeps until somebody logs, and one that has just written takes a nap.
void ztbench::restLog() {
    using Clock = std::chrono::steady_clock;
    flushLog();
    const std::uint64_t lWritten = ZTGetStatistic(ZTS_LogRecords);
    Log(ZTLL_Highest, sFile, "The next turn");
    const auto lDeadline = Clock::now() + std::chrono::milliseconds(5);
    while (ZTGetStatistic(ZTS_LogRecords) == lWritten && Clock::now() < lDeadline) {
        sched_yield();
    }
}

// ---- The collection ----

void ztbench::empty(unsigned int aMask) {
    setLogCode(ZTLL_Error.mBit);
    respond();
    release();
    setLogCode(aMask);
    if (aMask != 0) {
        restLog();
    }
}

void ztbench::addSmallest(unsigned int aRecords) {
    static const ZTCBenchEvent sEvent(8U, 1U, 0U);
    unsigned int lMask = 0;
    getLogCode(lMask);
    setLogCode(0);
    for (unsigned int lAt = 0; lAt < aRecords; ++lAt) {
        sEvent.deliver(lAt % 2);  // of another adapter than the one before, so none repeats it
    }
    setLogCode(lMask);
}

void ztbench::detach() {
    sDetached() = sAgent().getCollection().detach(sAdapters);
}

void ztbench::giveBack() {
    sAgent().getCollection().release(sDetached());
}

ZTCPointer<ZTCBuffer> ztbench::respond() {
    ZTCPointer<ZTCBuffer> lCommand(makePointer<ZTCBuffer>(1U));
    *lCommand->extend(1) = ZTSSCAC_GetScopeData;
    ZTCPointer<ZTCBuffer> lResponse;
    sAgent().getScopeAgentProtocolHandler()->process(lCommand, lResponse);
    return lResponse;
}

void ztbench::release() {
    sAgent().getScopeAgentProtocolHandler()->releaseFetchedData();
}
