#include "Fpin.h"

#include <tuple>

namespace {

auto sSaid(const ZTSFpin& acrFpin) {
    return std::tie(acrFpin.mInitiator, acrFpin.mFabric, acrFpin.mDescriptor, acrFpin.mEvent,
                    acrFpin.mSeverity, acrFpin.mDetecting, acrFpin.mAttached, acrFpin.mModifier,
                    acrFpin.mThreshold, acrFpin.mPeriod, acrFpin.mPorts);
}

}  // namespace

bool ZTSFpin::isSameAs(const ZTSFpin& acrOther) const {
    return sSaid(*this) == sSaid(acrOther);
}
