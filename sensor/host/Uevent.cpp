#include "Uevent.h"

#include <algorithm>

namespace {

// What stands before the next 0, which need not be behind the last; takes it off.
std::string_view sTakeText(std::string_view& arRest) {
    const std::string_view lText = arRest.substr(0, arRest.find('\0'));
    arRest.remove_prefix(std::min(lText.size() + 1, arRest.size()));
    return lText;
}

}  // namespace

std::string_view ZTSUevent::find(std::string_view aName) const {
    const auto lAt = mValues.find(aName);
    return lAt != mValues.end() ? lAt->second : std::string_view();
}

std::optional<ZTSUevent> readUevent(std::span<const unsigned char> aBytes) {
    std::string_view lRest(reinterpret_cast<const char*>(aBytes.data()), aBytes.size());
    const std::string_view lHead = sTakeText(lRest);
    // "add@/devices/..."; what udev sends on begins otherwise.
    const std::size_t lAt = lHead.find('@');
    if (lAt == 0 || lAt == std::string_view::npos || !lHead.substr(lAt + 1).starts_with('/')) {
        return {};
    }
    ZTSUevent lEvent{lHead.substr(0, lAt), lHead.substr(lAt + 1), {}};
    while (!lRest.empty()) {
        const std::string_view lPair = sTakeText(lRest);
        const std::size_t lEquals = lPair.find('=');
        if (lEquals != 0 && lEquals != std::string_view::npos) {
            lEvent.mValues.emplace(lPair.substr(0, lEquals), lPair.substr(lEquals + 1));
        }
    }
    return lEvent;
}
