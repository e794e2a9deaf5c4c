#include "Incident.h"

#include <algorithm>
#include <array>

namespace {

// In the order of their enumerations.
constexpr std::array<const char*, static_cast<std::size_t>(ZTEIncidentClass::Count)> sClasses{
    "collector_silent", "port_down",  "redundancy_lost", "link_flap",     "link_degraded",
    "fabric_change",    "slow_drain", "target_errors",   "device_errors", "login_rejected",
    "overload",         "resets",     "io_stall"};
constexpr std::array<const char*, 3> sStates{"open", "quiet", "closed"};

template <class Value, std::size_t Count>
std::optional<Value> sFind(const std::array<const char*, Count>& acrNames, std::string_view aName) {
    const auto* const lpName =
        std::ranges::find(acrNames, aName, [](const char* apName) { return std::string_view(apName); });
    if (lpName == acrNames.end()) {
        return std::nullopt;
    }
    return static_cast<Value>(lpName - acrNames.begin());
}

}  // namespace

const char* nameOf(ZTEIncidentClass aClass) {
    return sClasses[static_cast<std::size_t>(aClass)];
}

std::optional<ZTEIncidentClass> findIncidentClass(std::string_view aName) {
    return sFind<ZTEIncidentClass>(sClasses, aName);
}

const char* nameOf(ZTEIncidentState aState) {
    return sStates[static_cast<std::size_t>(aState)];
}

std::optional<ZTEIncidentState> findIncidentState(std::string_view aName) {
    return sFind<ZTEIncidentState>(sStates, aName);
}
