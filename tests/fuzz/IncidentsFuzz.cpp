// Whatever happens on a host, and in whatever order: incidents are found of it, the same in one go as step by
// step, and as with new starts in between. What one remembers may be anything.
#include <cstdlib>
#include <set>

#include "SignStory.h"

namespace {

constexpr const char* sVerbs[] = {"port-down",
                                  "port-up",
                                  "port-gone",
                                  "port-back",
                                  "target-lost from=%",
                                  "target-back from=%",
                                  "target-lost state=gone from=%",
                                  "paths-lost from=%",
                                  "paths-back from=%",
                                  "stall %v",
                                  "stall-over %v",
                                  "plogi from=%",
                                  "logo from=%",
                                  "rscn from=%",
                                  "ls_rjt from=%",
                                  "check_condition from=% sense=2/04/0a x4",
                                  "check_condition from=% sense=6/29/00",
                                  "check_condition from=% sense=3/11/00",
                                  "check_condition from=% sense=b/47/00 x12",
                                  "queue_full from=% x25 for=9s",
                                  "device_busy from=% x5",
                                  "lun_reset from=%",
                                  "fcp_read_check_error from=% x3",
                                  "link",
                                  "port_interrupt_error x3",
                                  "fpin link_integrity invalid_crc attached=%1",
                                  "fpin peer_congestion credit_stall attached=%1",
                                  "count invalid_crc_count 200",
                                  "count iotmo 2 from=%",
                                  "loss agent/limit x9 for=5s",
                                  "agent-gone killed",
                                  "agent-back",
                                  "sensor-gone ended",
                                  "sensor-gone unknown",
                                  "sensor-back"};
constexpr const char* sTargets[] = {"array1-A0,array1-A1", "array1/B", "array1", "array2", "*"};
constexpr const char* sOne[] = {"array1-A0", "array1-A1", "array1-B0", "array1-B1", "array2-A0"};
constexpr const char* sVolumes[] = {"vg0-root", "vg1-data", "vg2-home", "mpatha", "mpathb"};
constexpr const char* sHosts[] = {"*", "hba0,hba1", "hba1,hba3", "hba0,hba1,hba2"};

std::string replaced(std::string aText, const std::string& acrWhat, const std::string& acrBy) {
    const std::size_t lAt = aText.find(acrWhat);
    return lAt == std::string::npos ? aText : aText.replace(lAt, acrWhat.size(), acrBy);
}

// Three bytes a row: what, where, and how long behind the one before it: up to nine hours.
std::string makeStory(const unsigned char* apInput, std::size_t aSize) {
    std::string lText = "at 2026-11-17 10:00\n";
    std::uint64_t lSecond = 0;
    std::set<std::string> lStalled;
    for (std::size_t lAt = 0; lAt + 3 <= aSize && lAt < 96; lAt += 3) {
        const std::size_t lWhere = apInput[lAt + 1];
        lSecond += std::uint64_t{apInput[lAt + 2] & 0x3fU} << 3 * (apInput[lAt + 2] >> 6U);
        std::string lLine = sVerbs[apInput[lAt] % std::size(sVerbs)];
        lLine = replaced(lLine, "%1", sOne[lWhere % 5]);
        lLine = replaced(lLine, "%v", sVolumes[lWhere % 5]);
        if (lLine.starts_with("stall") &&
            (lLine.starts_with("stall-over") ? lStalled.erase(sVolumes[lWhere % 5]) == 0
                                             : !lStalled.insert(sVolumes[lWhere % 5]).second)) {
            continue;
        }
        lLine = replaced(lLine, "%", sTargets[lWhere % 5]);
        lText += "+" + std::to_string(lSecond) + "s " + lLine + " host=" + sHosts[lWhere / 5 % 4] + "\n";
    }
    return lText + "+" + std::to_string(lSecond + 3600) + "s end\n";
}

// Those that are part of others are as they were when that was found.
std::vector<ZTSIncident> incidentsOf(ZTSStoryEnd aEnd) {
    std::erase_if(aEnd.mIncidents, [](const ZTSIncident& acrIncident) { return acrIncident.mMerged != 0; });
    for (ZTSIncident& lrIncident : aEnd.mIncidents) {
        lrIncident.mMemory.clear();
    }
    return std::move(aEnd.mIncidents);
}

// What a finder remembered, with some bytes of another kind.
void forget(std::vector<ZTSIncident> aIncidents, const unsigned char* apInput, std::size_t aSize) {
    ZTSIncidentStart lStart;
    lStart.mNextId = aIncidents.size() + 1;
    for (ZTSIncident& lrIncident : aIncidents) {
        for (std::size_t lAt = 0; lAt + 3 <= aSize && !lrIncident.mMemory.empty(); lAt += 3) {
            const std::size_t lPlace = std::size_t{apInput[lAt]} << 8U | apInput[lAt + 1];
            lrIncident.mMemory[lPlace % lrIncident.mMemory.size()] = static_cast<char>(apInput[lAt + 2]);
        }
    }
    const ZTNanoseconds lTo = aIncidents.empty() ? 0 : aIncidents.back().mLast;
    lStart.mTo = lTo;
    lStart.mIncidents = std::move(aIncidents);
    ZTCIncidentFinder lFinder(getDefaultRules());
    lFinder.setStart(lStart);
    lFinder.finish(lTo + 86400 * ZTSecond);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* apInput, std::size_t aSize) {
    const std::string lText = makeStory(apInput, aSize);
    const ZTCSignStory lStory(lText);
    ZTSStoryEnd lEnd = lStory.play({600 * ZTSecond, 0, {}});
    forget(lEnd.mIncidents, apInput, aSize);
    if (lText.find("sensor-") != std::string::npos) {
        return 0;
    }
    const auto lUsual = incidentsOf(std::move(lEnd));
    ZTSStoryPlay lAnew{600 * ZTSecond, 0, {}};
    lAnew.mColdStarts = {lStory.getBegin() + (lStory.getEnd() - lStory.getBegin()) / 3};
    if (incidentsOf(lStory.play({0, 0, {}})) != lUsual || incidentsOf(lStory.play(lAnew)) != lUsual) {
        abort();
    }
    return 0;
}
