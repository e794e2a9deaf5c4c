#include "HostClock.h"

#include <fmt/format.h>
#include <sys/timex.h>

namespace {

constexpr double sMilli = 1000;

}  // namespace

std::optional<ZTSHostClock> readHostClock() {
    timex lTime{};  // no modes: it is only read
    const int lState = adjtimex(&lTime);
    return lState >= 0 ? std::optional(toHostClock(lTime, lState)) : std::nullopt;
}

ZTSHostClock toHostClock(const timex& acrTime, int aState) {
    const unsigned int lStatus = static_cast<unsigned int>(acrTime.status);
    const std::int64_t lUnit = (lStatus & STA_NANO) != 0 ? 1 : 1000;
    return {aState != TIME_ERROR && (lStatus & STA_UNSYNC) == 0, acrTime.maxerror, acrTime.esterror,
            acrTime.offset * lUnit};
}

std::string clockText(const std::optional<ZTSHostClock>& acrClock) {
    if (!acrClock) {
        return "not known: the kernel does not tell of it here";
    }
    if (!acrClock->mIsSynchronised) {
        return "NOT SYNCHRONISED: compare its times with other clocks' before anything is concluded";
    }
    return fmt::format("synchronised, wrong by {:.1f} ms at most",
                       static_cast<double>(acrClock->mMaxError) / sMilli);
}
