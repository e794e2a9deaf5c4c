// Shared ownership of one object or array.
//
// Misuse (copying or dereferencing an empty pointer, `->` on an array) is a bug of ours and ends the process
// with status 1; a failed allocation handed to a pointer becomes ZTCNoMemoryEx. So the idiom is
//
//     ZTCPointer<T> lpThing(new (std::nothrow) T(...), ZTPST_Individual, ZTPMT_New);
//
// Copies share the object and its counter; the last to go releases both. Counting is atomic, but one pointer
// object must not be changed by two threads at once. The line numbers belong to the assertions' records.
#pragma once

#include <cstdlib>
#include <new>
#include <type_traits>
#include <utility>

#include "Assert.h"
#include "Exception.h"
#include "ReferenceCount.h"

inline constexpr char ZTPointerFile[] = "backend/common/include/Pointer";

enum ZTEPointerSizeType : unsigned char {
    ZTPST_Individual = 1,  ///< one object
    ZTPST_Array = 2,       ///< an array made with array new
};

enum ZTEPointerMemoryType : unsigned char {
    ZTPMT_New = 1,      ///< made with new or array new
    ZTPMT_Malloc = 2,   ///< made with malloc
    ZTPMT_Counted = 4,  ///< made by makePointer, in one piece with its counter
};

/// An object and its counter in one piece of memory.
template <class T>
struct ZTCCounted : ZTCReferenceCount {
    template <class... Arguments>
    explicit ZTCCounted(Arguments&&... arArguments)
        : ZTCReferenceCount(1), mObject(std::forward<Arguments>(arArguments)...) {}

    T mObject;
};

template <class T>
class ZTCPointer {
  public:
    ZTCPointer() = default;

    /// Adopts a freshly allocated object. Throws ZTCNoMemoryEx when it is null, or when the counter cannot be
    /// allocated; in that case the object is left as it is, also not freed.
    ZTCPointer(T* apObject, ZTEPointerSizeType aSizeType, ZTEPointerMemoryType aMemoryType) {
        if (apObject == nullptr) {
            throwNoMemory();
        }
        auto* const lpCount = new (std::nothrow) ZTCReferenceCount(1);
        if (lpCount == nullptr) {
            throwNoMemory();
        }
        mPointer = apObject;
        mReferenceCount = lpCount;
        mSizeType = aSizeType;
        mMemoryType = aMemoryType;
    }

    /// Adopts a freshly made object with its counter. Throws ZTCNoMemoryEx when it is null.
    explicit ZTCPointer(ZTCCounted<T>* apCounted) : mSizeType(ZTPST_Individual), mMemoryType(ZTPMT_Counted) {
        if (apCounted == nullptr) {
            throwNoMemory();
        }
        mPointer = &apCounted->mObject;
        mReferenceCount = apCounted;
    }

    ZTCPointer(const ZTCPointer& acrCopy) {
        ZT_ASSERT(0 != acrCopy.mPointer, 297, ZTPointerFile);
        ZT_ASSERT(0 != acrCopy.mReferenceCount, 298, ZTPointerFile);
        share(acrCopy);
    }

    /// Takes over what the other one owns, if anything, and leaves that empty. Touches no count.
    ZTCPointer(ZTCPointer&& arOther) noexcept { swap(arOther); }

    ZTCPointer& operator=(const ZTCPointer& acrCopy) {
        ZT_ASSERT(0 != acrCopy.mPointer, 337, ZTPointerFile);
        ZT_ASSERT(0 != acrCopy.mReferenceCount, 338, ZTPointerFile);
        if (this != &acrCopy) {
            // Shared first, then let go: what is released may be the owner of acrCopy.
            ZTCPointer lShared(acrCopy);
            swap(lShared);
        }
        return *this;
    }

    ~ZTCPointer() {
        if (mPointer != nullptr && mReferenceCount != nullptr && mReferenceCount->decrement() == 0) {
            _releaseMemory();
        }
        mPointer = nullptr;
        mReferenceCount = nullptr;
        mSizeType = {};
        mMemoryType = {};
    }

    /// The object; of an array, its first element.
    T& operator*() const {
        ZT_ASSERT(0 != mPointer, 395, ZTPointerFile);
        ZT_ASSERT(0 != mReferenceCount, 396, ZTPointerFile);
        ZT_ASSERT_NAMED(ZTPST_Individual == mSizeType || ZTPST_Array == mSizeType, "false", 406,
                        ZTPointerFile);
        return *mPointer;
    }

    T* operator->() const {
        ZT_ASSERT(0 != mPointer, 443, ZTPointerFile);
        ZT_ASSERT(0 != mReferenceCount, 444, ZTPointerFile);
        ZT_ASSERT(ZTPST_Individual == mSizeType, 446, ZTPointerFile);
        return mPointer;
    }

    T* operator->() {
        ZT_ASSERT(0 != mPointer, 460, ZTPointerFile);
        ZT_ASSERT(0 != mReferenceCount, 461, ZTPointerFile);
        ZT_ASSERT(ZTPST_Individual == mSizeType, 463, ZTPointerFile);
        return mPointer;
    }

    T* get() const {
        ZT_ASSERT(0 != mPointer, 614, ZTPointerFile);
        ZT_ASSERT(0 != mReferenceCount, 615, ZTPointerFile);
        return mPointer;
    }

    /// `pointer != 0` asks whether it is not empty; asserts nothing.
    bool operator!=(const T* apOther) const { return mPointer != apOther; }

    /// Exchanges what two pointers own, either of which may be empty. Touches no count.
    void swap(ZTCPointer& arOther) noexcept {
        std::swap(mPointer, arOther.mPointer);
        std::swap(mReferenceCount, arOther.mReferenceCount);
        std::swap(mSizeType, arOther.mSizeType);
        std::swap(mMemoryType, arOther.mMemoryType);
    }

    /// Whether this is the only owner. False for an empty pointer.
    bool isUnique() const { return mReferenceCount != nullptr && mReferenceCount->isOne(); }

  private:
    void share(const ZTCPointer& acrCopy) {
        mPointer = acrCopy.mPointer;
        mReferenceCount = acrCopy.mReferenceCount;
        mSizeType = acrCopy.mSizeType;
        mMemoryType = acrCopy.mMemoryType;
        mReferenceCount->increment();
    }

    void _releaseMemory() {
        if constexpr (!std::is_abstract_v<T> && !std::is_const_v<T>) {
            if (mMemoryType == ZTPMT_Counted) {
                delete static_cast<ZTCCounted<T>*>(mReferenceCount);
                return;
            }
        }
        delete mReferenceCount;
        mReferenceCount = nullptr;
        if (mMemoryType == ZTPMT_New) {
            if (mSizeType == ZTPST_Individual) {
                delete mPointer;
            } else if (mSizeType == ZTPST_Array) {
                delete[] mPointer;
            } else {
                ZT_ASSERT(false, 503, ZTPointerFile);
            }
        } else if (mMemoryType == ZTPMT_Malloc) {
            free(const_cast<std::remove_cv_t<T>*>(mPointer));
        } else {
            ZT_ASSERT(false, 511, ZTPointerFile);
        }
        mPointer = nullptr;
    }

    T* mPointer = nullptr;
    ZTCReferenceCount* mReferenceCount = nullptr;
    ZTEPointerSizeType mSizeType{};
    ZTEPointerMemoryType mMemoryType{};
};

/// Allocates one T and hands it to a pointer: the idiom above in one call and one piece of memory, where
/// std::bad_alloc out of T's constructor becomes ZTCNoMemoryEx too.
template <class T, class... Arguments>
ZTCPointer<T> makePointer(Arguments&&... arArguments) {
    return orNoMemory([&] {
        return ZTCPointer<T>(new (std::nothrow) ZTCCounted<T>(std::forward<Arguments>(arArguments)...));
    });
}

/// The same, adopted as one of its bases, whose destructor is virtual.
template <class Base, class Derived, class... Arguments>
ZTCPointer<Base> makePointerAs(Arguments&&... arArguments) {
    return orNoMemory([&] {
        return ZTCPointer<Base>(new (std::nothrow) Derived(std::forward<Arguments>(arArguments)...),
                                ZTPST_Individual, ZTPMT_New);
    });
}
