#include "FailingAllocator.h"

#include <algorithm>
#include <cstdlib>
#include <new>

using Kind = FailingAllocator::Kind;

// The linker leads the calls of malloc, realloc and free in this program to the functions with __wrap_.
extern "C" {
void* __real_malloc(std::size_t);
void* __real_realloc(void*, std::size_t);
void __real_free(void*);
void* __wrap_malloc(std::size_t);
void* __wrap_realloc(void*, std::size_t);
void __wrap_free(void*);
}

namespace {

constinit thread_local FailingAllocator* tpCurrent = nullptr;

void* allocate(std::size_t aSize, std::align_val_t aAlignment, Kind aKind, bool aIsNothrow) {
    const auto lAlignment = static_cast<std::size_t>(aAlignment);
    void* lpBlock = nullptr;
    if (FailingAllocator::mayAllocate()) {
        lpBlock = lAlignment == 0
                      ? __real_malloc(aSize)
                      : aligned_alloc(lAlignment, (aSize + lAlignment - 1) / lAlignment * lAlignment);
    }
    FailingAllocator::add(lpBlock, aKind);
    if (lpBlock == nullptr && !aIsNothrow) {
        throw std::bad_alloc();
    }
    return lpBlock;
}

void release(void* apBlock, Kind aKind) {
    FailingAllocator::remove(apBlock, aKind);
    __real_free(apBlock);
}

}  // namespace

FailingAllocator::FailingAllocator(unsigned int aFailing) : mUntilFailure(aFailing) {
    tpCurrent = this;
}

FailingAllocator::~FailingAllocator() {
    stop();
    std::for_each(mBlocks, mBlocks + mBlockCount,
                  [](const Block& acrBlock) { __real_free(acrBlock.mpBlock); });
}

void FailingAllocator::stop() {
    tpCurrent = nullptr;
}

bool FailingAllocator::mayAllocate() {
    if (tpCurrent == nullptr || tpCurrent->mUntilFailure == 0 || --tpCurrent->mUntilFailure != 0) {
        return true;
    }
    tpCurrent->mHasFailed = true;
    return false;
}

void FailingAllocator::add(void* apBlock, Kind aKind) {
    if (tpCurrent == nullptr || apBlock == nullptr) {
        return;
    }
    if (tpCurrent->mBlockCount == MaxBlocks) {
        abort();
    }
    tpCurrent->mBlocks[tpCurrent->mBlockCount++] = {apBlock, aKind};
}

bool FailingAllocator::remove(void* apBlock, Kind aKind) {
    if (tpCurrent == nullptr) {
        return false;
    }
    Block* const lpEnd = tpCurrent->mBlocks + tpCurrent->mBlockCount;
    Block* const lpFound = std::find_if(tpCurrent->mBlocks, lpEnd,
                                        [=](const Block& acrBlock) { return acrBlock.mpBlock == apBlock; });
    if (lpFound == lpEnd) {
        return false;
    }
    tpCurrent->mWronglyFreed += lpFound->mKind == aKind ? 0 : 1;
    *lpFound = lpEnd[-1];
    --tpCurrent->mBlockCount;
    return true;
}

void* __wrap_malloc(std::size_t aSize) {
    return allocate(aSize, {}, Kind::Malloc, true);
}

void* __wrap_realloc(void* apBlock, std::size_t aSize) {
    if (!FailingAllocator::mayAllocate()) {
        return nullptr;
    }
    const bool lIsCounted = FailingAllocator::remove(apBlock, Kind::Malloc) || apBlock == nullptr;
    void* const lpBlock = __real_realloc(apBlock, aSize);
    if (lIsCounted) {
        FailingAllocator::add(lpBlock != nullptr ? lpBlock : apBlock, Kind::Malloc);
    }
    return lpBlock;
}

void __wrap_free(void* apBlock) {
    release(apBlock, Kind::Malloc);
}

#define NEW(New, OfKind, Alignment, IsNothrow, ...)                                        \
    void* operator New(std::size_t aSize __VA_OPT__(, ) __VA_ARGS__) noexcept(IsNothrow) { \
        return allocate(aSize, Alignment, OfKind, IsNothrow);                              \
    }
#define DELETE(Delete, OfKind, ...)                                           \
    void operator Delete(void* apBlock __VA_OPT__(, ) __VA_ARGS__) noexcept { \
        release(apBlock, OfKind);                                             \
    }
#define ALLOCATORS(New, Delete, OfKind)                                                    \
    NEW(New, OfKind, {}, false)                                                            \
    NEW(New, OfKind, {}, true, const std::nothrow_t&)                                      \
    NEW(New, OfKind, aAlignment, false, std::align_val_t aAlignment)                       \
    NEW(New, OfKind, aAlignment, true, std::align_val_t aAlignment, const std::nothrow_t&) \
    DELETE(Delete, OfKind)                                                                 \
    DELETE(Delete, OfKind, std::size_t)                                                    \
    DELETE(Delete, OfKind, const std::nothrow_t&)                                          \
    DELETE(Delete, OfKind, std::align_val_t)                                               \
    DELETE(Delete, OfKind, std::size_t, std::align_val_t)                                  \
    DELETE(Delete, OfKind, std::align_val_t, const std::nothrow_t&)
ALLOCATORS(new, delete, Kind::New)
ALLOCATORS(new[], delete[], Kind::NewArray)
