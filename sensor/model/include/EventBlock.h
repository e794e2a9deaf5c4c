// The kinds of events, and what the blocks of their data say: bytes to fields with names.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <variant>
#include <vector>

#include "Wwn.h"

struct ZTSEventField;
/// The fields of one thing that a list has several of.
using ZTEventGroup = std::vector<ZTSEventField>;
/// A field's value. The first alternative: the block is too short for it, or its number has no name.
using ZTEventValue = std::variant<std::monostate, std::uint32_t, ZTSWwn, std::string,
                                  std::vector<std::uint32_t>, std::vector<ZTEventGroup>>;

struct ZTSEventField {
    const char* mpName = "";  ///< lives as long as the program
    ZTEventValue mValue;
};

/// A logical unit that means all of a target's, and a set's size.
inline constexpr std::uint32_t ZTEventAllLuns = 0xffffffff;
inline constexpr std::uint32_t ZTEventSetSize = 256;

/// The name of the kind that arrives with these numbers: "plogi". Null if none is known.
const char* findEventKind(std::uint8_t aCategory, std::uint8_t aSubcategory);

/// A kind's name and numbers.
struct ZTSEventKindName {
    std::uint8_t mCategory;
    std::uint8_t mSubcategory;
    const char* mpName;
};
/// All kinds that are known, in the order of their numbers.
std::vector<ZTSEventKindName> listEventKinds();

/// Reads a block. Nothing if the kind is not known, or the block does not begin as blocks of this form do.
/// The fields of a kind are always the same ones, in the same order; bytes that make no whole value are left
/// out.
std::optional<ZTEventGroup> decodeEventBlock(std::uint8_t aCategory, std::uint8_t aSubcategory,
                                             std::span<const std::uint8_t> aBlock);
