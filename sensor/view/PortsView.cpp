#include "PortsView.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <iterator>

#include "TimeText.h"

namespace {

// What is measured, but is no error.
constexpr std::string_view sNoErrors[] = {"commands", "command_us", "slowest_us"};

std::map<ZTSMeasured, ZTSPortsView::Errors> sReadErrors(ZTCStoreReader& arReader) {
    constexpr std::int64_t lHour = 3600;
    constexpr std::int64_t lMinute = 60;
    const std::int64_t lNow = toNanoseconds(toSensorTime(std::chrono::system_clock::now())) / ZTSecond;
    std::map<ZTSMeasured, ZTSPortsView::Errors> lErrors;
    for (const ZTSStoredMeasure& lrMeasure :
         arReader.readMeasures("", ZTEStoreBin::Minute, lNow - lHour, lNow + lMinute)) {
        const bool lIsError =
            std::find(std::begin(sNoErrors), std::end(sNoErrors), lrMeasure.mName) == std::end(sNoErrors);
        if (lIsError && lrMeasure.mWhose.mLun.empty()) {
            lErrors[lrMeasure.mWhose][lrMeasure.mName] += lrMeasure.mValue;
        }
    }
    return lErrors;
}

}  // namespace

const ZTSPortsView::Errors& ZTSPortsView::errorsOf(const ZTSWwn& acrInitiator,
                                                   const ZTSWwn& acrRemote) const {
    static const Errors sNone;
    const auto lAt = mErrors.find({acrInitiator, acrRemote, ""});
    return lAt != mErrors.end() ? lAt->second : sNone;
}

std::string portIdText(const std::optional<std::uint32_t>& acrId) {
    return acrId ? fmt::format("{:06x}", *acrId) : "";
}

ZTSPortsView readPortsView(ZTCStoreReader& arReader) {
    return {arReader.getHost(),         arReader.readLabels(),     arReader.readPorts(),
            arReader.readRemotePorts(), arReader.readBlindSpots(), sReadErrors(arReader)};
}
