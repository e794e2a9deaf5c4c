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

/// How blocks that say the same become one: what they must have in common, and behind that what is united, or
/// joined.
struct ZTSEventLayout {
    std::uint32_t mSame = 0;  ///< bytes from the begin
    std::uint8_t mSets = 0;   ///< so many sets
    std::uint8_t mAdded = 0;  ///< or a list to the block's end, whose members have so many bytes; 0: none

    bool operator==(const ZTSEventLayout&) const = default;
};
/// Of a kind that is not known, and of a block of another form, all bytes are to be the same.
ZTSEventLayout layoutOf(std::uint8_t aCategory, std::uint8_t aSubcategory,
                        std::span<const std::uint8_t> aBlock);
/// What a set takes of a block: the word of its size, and a bit for each value.
inline constexpr std::size_t ZTEventSetBytes = 4 + ZTEventSetSize / 8;

/// The port beyond the fabric that a block names. Nothing if it names none.
std::optional<ZTSWwn> findRemotePort(std::uint8_t aCategory, std::uint8_t aSubcategory,
                                     std::span<const std::uint8_t> aBlock);
/// Whether blocks of that kind have a sense key, and which one a block has. Nothing: it is too short for one.
bool hasSenseKey(std::uint8_t aCategory, std::uint8_t aSubcategory);
std::optional<std::uint32_t> findSenseKey(std::uint8_t aCategory, std::uint8_t aSubcategory,
                                          std::span<const std::uint8_t> aBlock);
/// The address of the one port that an RSCN is about. Nothing if it is about more, or no RSCN.
std::optional<std::uint32_t> findPortId(std::uint8_t aCategory, std::uint8_t aSubcategory,
                                        std::span<const std::uint8_t> aBlock);
