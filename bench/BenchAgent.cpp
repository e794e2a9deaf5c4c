#include "BenchAgent.h"

#include "Bench.h"
#include "SystemMain.h"

namespace {

constinit thread_local std::uint64_t tAllocations = 0;

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

ZTCScopeAgentSystem& ztbench::agent() {
    static ZTCScopeAgentSystem& srAgent = []() -> ZTCScopeAgentSystem& {
        useAgentLog();
        setenv("ZT_LIBDFC", ZT_DFC_SIM, 1);
        auto* const lpAgent = new ZTCScopeAgentSystem(ZTCString("bench"));
        setSystemObject(lpAgent);
        lpAgent->initLibdfc();
        lpAgent->initScopeAgentHandlers();
        lpAgent->setDataCeiling(1024);
        return *lpAgent;
    }();
    return srAgent;
}

ZTCPointer<ZTCBuffer> ztbench::fetch() {
    ZTCPointer<ZTCBuffer> lCommand(makePointer<ZTCBuffer>(1U));
    *lCommand->extend(1) = ZTSSCAC_GetScopeData;
    ZTCPointer<ZTCBuffer> lResponse;
    agent().getScopeAgentProtocolHandler()->process(lCommand, lResponse);
    return lResponse;
}
