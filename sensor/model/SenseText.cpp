#include "SenseText.h"

#include <fmt/format.h>
#include <scsi/sg_lib.h>

#include <cctype>
#include <string_view>

#include "EventNames.h"

namespace {

constexpr std::uint32_t sNotReady = 2;
// What stands before the words of a code, if it has some.
constexpr std::string_view sBefore = "Additional sense: ";
// What the key says already.
constexpr std::string_view sRepeated[] = {"Logical unit not ready, ", "Logical unit not accessible, "};

// The words of the code alone, as they stand within a sentence.
std::string sCodeText(std::uint32_t aKey, std::uint8_t aCode, std::uint8_t aQualifier) {
    char lBuffer[256];
    std::string_view lText = sg_get_asc_ascq_str(aCode, aQualifier, sizeof lBuffer, lBuffer);
    if (!lText.starts_with(sBefore)) {
        return {};
    }
    lText.remove_prefix(sBefore.size());
    for (const std::string_view lWords : sRepeated) {
        if (aKey == sNotReady && lText.starts_with(lWords)) {
            lText.remove_prefix(lWords.size());
        }
    }
    std::string lWords(lText);
    if (lWords.size() > 1 && std::islower(static_cast<unsigned char>(lWords[1])) != 0) {
        lWords[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(lWords[0])));
    }
    return lWords;
}

}  // namespace

std::string senseText(std::uint32_t aKey, std::uint8_t aCode, std::uint8_t aQualifier) {
    const std::string lCode = sCodeText(aKey, aCode, aQualifier);
    const char* const lpKey = nameSenseKey(aKey);
    return lCode.empty() || lpKey == nullptr ? lCode : fmt::format("{}: {}", lpKey, lCode);
}

std::string senseNumbers(std::uint32_t aKey, std::uint8_t aCode, std::uint8_t aQualifier) {
    return fmt::format("{:x}/{:02x}/{:02x}", aKey, aCode, aQualifier);
}
