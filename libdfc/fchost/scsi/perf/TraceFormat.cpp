#include "TraceFormat.h"

#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstring>
#include <system_error>

#include "KernelFile.h"
#include "ScsiSource.h"

namespace {

constexpr std::size_t sLongestEvent = 8192;  // as the kernel's own limit for perf events

[[noreturn]] void sRefuse(std::string_view aLine) {
    throw ZTCScsiNotAvailable("a format of the kernel's trace events is not understood: \"" +
                              std::string(aLine.substr(0, 80)) + '"');
}

// The text up to a character, which are both taken off. All of it if the character is not there.
std::string_view sTake(std::string_view& arText, char aEnd) {
    const std::string_view lTaken = arText.substr(0, arText.find(aEnd));
    arText.remove_prefix(std::min(arText.size(), lTaken.size() + 1));
    return lTaken;
}

// The number behind a word, if there is nothing else.
std::optional<std::uint16_t> sNumber(std::string_view aText, std::string_view aWord) {
    std::uint16_t lNumber = 0;
    if (!aText.starts_with(aWord)) {
        return {};
    }
    const char* const lpEnd = aText.data() + aText.size();
    const auto lParsed = std::from_chars(aText.data() + aWord.size(), lpEnd, lNumber);
    return lParsed.ec == std::errc() && lParsed.ptr == lpEnd ? std::optional(lNumber) : std::nullopt;
}

std::string sReadFormat(const std::string& acrTracing, const std::string& acrEvent) {
    try {
        return readKernelFile(acrTracing + "/events/" + acrEvent + "/format");
    } catch (const std::system_error& lrError) {
        const int lError = lrError.code().value();
        if (lError != ENOENT && lError != ENOTDIR) {
            throw ZTCScsiNotAvailable(lrError.what());
        }
        throw ZTCScsiNotAvailable(access((acrTracing + "/events").c_str(), F_OK) != 0
                                      ? "tracefs is not mounted at " + acrTracing
                                      : "this kernel has no SCSI: no trace event " + acrEvent);
    }
}

}  // namespace

ZTCTraceFormat::ZTCTraceFormat(const std::string& acrTracing, const std::string& acrGroup,
                               const std::string& acrName)
    : ZTCTraceFormat(sReadFormat(acrTracing, acrGroup + '/' + acrName)) {}

// Lines but for these two are of no interest; the last ones have the text of the format at which events are
// printed.
ZTCTraceFormat::ZTCTraceFormat(std::string_view aText) {
    while (!aText.empty() && !aText.starts_with("print fmt:")) {
        const std::string_view lLine = sTake(aText, '\n');
        if (lLine.starts_with("\tfield:")) {
            addField(lLine);
        } else if (lLine.starts_with("ID: ")) {
            const auto lId = sNumber(lLine, "ID: ");
            mId = lId && mId == 0 ? *lId : 0;
        }
    }
    if (mId == 0) {
        sRefuse("ID: ");
    }
}

// "\tfield:unsigned int host_no;\toffset:8;\tsize:4;\tsigned:0;"
void ZTCTraceFormat::addField(std::string_view aLine) {
    std::string_view lLeft = aLine;
    const std::string_view lDeclaration = sTake(lLeft, ';');
    const auto lOffset = sNumber(sTake(lLeft, ';'), "\toffset:");
    const auto lSize = sNumber(sTake(lLeft, ';'), "\tsize:");
    if (!lOffset || !lSize || std::size_t{*lOffset} + *lSize > sLongestEvent) {
        sRefuse(aLine);
    }
    const std::string_view lName = lDeclaration.substr(lDeclaration.rfind(' ') + 1);
    const bool lIsElsewhere = lDeclaration.find("_loc ") != std::string_view::npos;  // of that, the place
    const bool lIsNumber =
        !lIsElsewhere && (*lSize == 1 || *lSize == 2 || *lSize == 4 || *lSize == 8) && !lName.ends_with(']');
    const ZTSTraceField lField{*lOffset, lIsNumber ? *lSize : std::uint16_t{0}};
    if (!mFields.emplace(lName, lField).second) {
        sRefuse(aLine);
    }
}

std::optional<ZTSTraceField> ZTCTraceFormat::find(std::string_view aName) const {
    const auto lField = mFields.find(aName);
    return lField != mFields.end() && lField->second.mSize != 0 ? std::optional(lField->second)
                                                                : std::nullopt;
}

std::uint64_t readTraceNumber(const unsigned char* apEvent, const ZTSTraceField& acrField) {
    const auto lReadAs = [&](auto aNumber) -> std::uint64_t {
        memcpy(&aNumber, apEvent + acrField.mOffset, sizeof aNumber);
        return aNumber;
    };
    switch (acrField.mSize) {
        case 1:
            return lReadAs(std::uint8_t{});
        case 2:
            return lReadAs(std::uint16_t{});
        case 4:
            return lReadAs(std::uint32_t{});
        case 8:
            return lReadAs(std::uint64_t{});
        default:
            return 0;
    }
}
