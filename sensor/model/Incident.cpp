#include "Incident.h"

#include <algorithm>
#include <array>
#include <tuple>
#include <utility>

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

// What is newer takes the place of what it is of.
template <class Item, class Key>
void sJoin(std::vector<Item>& arItems, std::vector<Item>&& arMore, const Key& acrKey) {
    for (Item& lrMore : arMore) {
        const auto lOld = std::ranges::find_if(
            arItems, [&](const Item& acrItem) { return acrKey(acrItem) == acrKey(lrMore); });
        if (lOld != arItems.end()) {
            *lOld = std::move(lrMore);
        } else {
            arItems.push_back(std::move(lrMore));
        }
    }
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

void ZTSIncidentNews::join(ZTSIncidentNews aMore) {
    sJoin(mIncidents, std::move(aMore.mIncidents),
          [](const ZTSIncident& acrIncident) { return acrIncident.mId; });
    sJoin(mBaselines, std::move(aMore.mBaselines), [](const ZTSBaseline& acrBaseline) {
        return std::tie(acrBaseline.mDay, acrBaseline.mKind, acrBaseline.mPort);
    });
    mTo = std::max(mTo, aMore.mTo);
}
