#include "Rights.h"

#include <linux/capability.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

// By hand, for the calls are two and of one thread; the C library has none.
struct Capabilities {
    __user_cap_header_struct mHeader{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct mHalves[_LINUX_CAPABILITY_U32S_3]{};
    const bool mIsKnown;

    // What cannot be read is none.
    Capabilities() : mIsKnown(syscall(SYS_capget, &mHeader, mHalves) == 0) {}

    std::uint64_t getEffective() const {
        return std::uint64_t{mHalves[1].effective} << 32U | mHalves[0].effective;
    }
    std::uint64_t getPermitted() const {
        return std::uint64_t{mHalves[1].permitted} << 32U | mHalves[0].permitted;
    }
    // False: refused.
    bool setEffective(std::uint64_t aCapabilities) {
        mHalves[0].effective = static_cast<std::uint32_t>(aCapabilities);
        mHalves[1].effective = static_cast<std::uint32_t>(aCapabilities >> 32U);
        return syscall(SYS_capset, &mHeader, mHalves) == 0;
    }
};

}  // namespace

bool giveUpFcRights() noexcept {
    Capabilities lCapabilities;
    const bool lHasNone = lCapabilities.mIsKnown && lCapabilities.getEffective() == 0;
    return lHasNone || lCapabilities.setEffective(0);
}

bool hasFcRight(unsigned int aCapability) noexcept {
    return (Capabilities().getEffective() >> aCapability & 1U) != 0;
}

ZTCFcRaisedRights::ZTCFcRaisedRights() noexcept {
    Capabilities lCapabilities;
    mBefore = lCapabilities.getEffective();
    lCapabilities.setEffective(lCapabilities.getPermitted());
}

ZTCFcRaisedRights::~ZTCFcRaisedRights() {
    Capabilities().setEffective(mBefore);
}
