// What the kernel says of a device: an action, and names with values.
#pragma once

#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>

/// The values are the message's own: valid as long as its bytes.
struct ZTSUevent {
    std::string_view mAction;  ///< "add", "remove", "change"
    std::string_view mPath;    ///< "/devices/virtual/block/dm-3"
    std::map<std::string_view, std::string_view> mValues;

    /// Empty: there is none of that name.
    std::string_view find(std::string_view aName) const;
};

/// Nothing: it is none of the kernel's. Of a name that is there twice the first counts. Throws
/// std::bad_alloc.
std::optional<ZTSUevent> readUevent(std::span<const unsigned char> aBytes);
