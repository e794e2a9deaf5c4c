#include "Registrations.h"

#include <algorithm>
#include <new>

std::uint32_t ZTCFcRegistrations::add(ZTSFcRegistration aRegistration) {
    const ZTCFcGuard lGuard(mLock);
    mLastHandle += mLastHandle == UINT32_MAX ? 2 : 1;  // 0 is none
    aRegistration.mHandle = mLastHandle;
    try {
        mRegistrations.push_back(aRegistration);
    } catch (const std::bad_alloc&) {
        return 0;
    }
    return aRegistration.mHandle;
}

bool ZTCFcRegistrations::remove(std::uint32_t aBoard, std::uint32_t aHandle, bool aIsByMask) {
    const ZTCFcGuard lGuard(mLock);
    const auto lEnd =
        std::remove_if(mRegistrations.begin(), mRegistrations.end(), [=](const auto& acrRegistration) {
            return acrRegistration.mBoard == aBoard && acrRegistration.mHandle == aHandle &&
                   (acrRegistration.mId.mMask != 0) == aIsByMask;
        });
    const bool lIsThere = lEnd != mRegistrations.end();
    mRegistrations.erase(lEnd, mRegistrations.end());
    return lIsThere;
}
