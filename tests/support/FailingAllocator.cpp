#include "FailingAllocator.h"

#include <cstdlib>
#include <new>

// The linker leads the calls of malloc and realloc in this program to the functions with __wrap_.
extern "C" {
void* __real_malloc(std::size_t);
void* __real_realloc(void*, std::size_t);
void* __wrap_malloc(std::size_t);
void* __wrap_realloc(void*, std::size_t);
}

namespace {

constinit thread_local FailingAllocator* tpCurrent = nullptr;

void* allocate(std::size_t aSize, std::align_val_t aAlignment, bool aIsNothrow) {
    const auto lAlignment = static_cast<std::size_t>(aAlignment);
    void* lpBlock = nullptr;
    if (FailingAllocator::mayAllocate()) {
        lpBlock = lAlignment == 0
                      ? __real_malloc(aSize)
                      : aligned_alloc(lAlignment, (aSize + lAlignment - 1) / lAlignment * lAlignment);
    }
    if (lpBlock == nullptr && !aIsNothrow) {
        throw std::bad_alloc();
    }
    return lpBlock;
}

}  // namespace

FailingAllocator::FailingAllocator(unsigned int aFailing) : mUntilFailure(aFailing) {
    tpCurrent = this;
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

void* __wrap_malloc(std::size_t aSize) {
    return FailingAllocator::mayAllocate() ? __real_malloc(aSize) : nullptr;
}

void* __wrap_realloc(void* apBlock, std::size_t aSize) {
    return FailingAllocator::mayAllocate() ? __real_realloc(apBlock, aSize) : nullptr;
}

#define NEW(New, Alignment, IsNothrow, ...)                                                \
    void* operator New(std::size_t aSize __VA_OPT__(, ) __VA_ARGS__) noexcept(IsNothrow) { \
        return allocate(aSize, Alignment, IsNothrow);                                      \
    }
#define DELETE(Delete, ...)                                                   \
    void operator Delete(void* apBlock __VA_OPT__(, ) __VA_ARGS__) noexcept { \
        free(apBlock);                                                        \
    }
#define ALLOCATORS(New, Delete)                                                    \
    NEW(New, {}, false)                                                            \
    NEW(New, {}, true, const std::nothrow_t&)                                      \
    NEW(New, aAlignment, false, std::align_val_t aAlignment)                       \
    NEW(New, aAlignment, true, std::align_val_t aAlignment, const std::nothrow_t&) \
    DELETE(Delete)                                                                 \
    DELETE(Delete, std::size_t)                                                    \
    DELETE(Delete, const std::nothrow_t&)                                          \
    DELETE(Delete, std::align_val_t)                                               \
    DELETE(Delete, std::size_t, std::align_val_t)                                  \
    DELETE(Delete, std::align_val_t, const std::nothrow_t&)
ALLOCATORS(new, delete)
ALLOCATORS(new[], delete[])
