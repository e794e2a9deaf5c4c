// Who wants to be called back for what.
#pragma once

#include <cstdint>
#include <vector>

#include "Lock.h"
#include "libdfc_provider.h"

/// An event's number: a category and a subcategory, or a mask.
struct ZTSFcEventId {
    std::uint32_t mMask = 0;
    std::uint32_t mCategory = 0;
    std::uint32_t mSubcategory = 0;

    bool operator==(const ZTSFcEventId&) const = default;
};

struct ZTSFcRegistration {
    std::uint32_t mBoard = 0;
    ZTSFcEventId mId;
    ZT_generic_callback mpGeneric = nullptr;  ///< for a category, else null
    ZT_dfc_callback mpByMask = nullptr;       ///< for a mask, else null
    void* mpContext = nullptr;
    std::uint32_t mHandle = 0;
};

/// Any thread but one that is inside a callback. Callbacks are made one after the other; what ends a
/// registration waits for the one that is inside.
class ZTCFcRegistrations {
  public:
    /// Returns the handle. 0: there is no memory.
    std::uint32_t add(ZTSFcRegistration aRegistration);
    /// False: there is none.
    bool remove(std::uint32_t aBoard, std::uint32_t aHandle, bool aIsByMask);

    /// Calls the function with each registration of the board for the event. Returns how many there were.
    template <class Call>
    unsigned int each(std::uint32_t aBoard, const ZTSFcEventId& acrId, const Call& acrCall) {
        const ZTCFcGuard lGuard(mLock);
        unsigned int lCount = 0;
        for (const ZTSFcRegistration& lrRegistration : mRegistrations) {
            if (lrRegistration.mBoard == aBoard && lrRegistration.mId == acrId) {
                acrCall(lrRegistration);
                ++lCount;
            }
        }
        return lCount;
    }

  private:
    ZTCFcLock mLock;  // held while a callback is made
    std::vector<ZTSFcRegistration> mRegistrations ZT_FC_GUARDED_BY(mLock);
    std::uint32_t mLastHandle ZT_FC_GUARDED_BY(mLock) = 0;
};
