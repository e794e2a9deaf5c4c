#include "JsonWriter.h"

#include <fmt/format.h>

#include <charconv>
#include <iterator>

#include "Utf8.h"

namespace {

constexpr std::uint32_t sReplacement = 0xfffd;
constexpr std::uint32_t sFirstOfPairs = 0x10000;

void sAppendEscaped(std::string& arTo, std::uint32_t aUnit) {
    fmt::format_to(std::back_inserter(arTo), "\\u{:04x}", aUnit);
}

// What is above U+FFFF is two units.
void sAppendCharacter(std::string& arTo, std::uint32_t aCode) {
    if (aCode >= ' ' && aCode <= '~' && aCode != '"' && aCode != '\\') {
        arTo += static_cast<char>(aCode);
    } else if (aCode < sFirstOfPairs) {
        sAppendEscaped(arTo, aCode);
    } else {
        sAppendEscaped(arTo, 0xd800 + ((aCode - sFirstOfPairs) >> 10));
        sAppendEscaped(arTo, 0xdc00 + ((aCode - sFirstOfPairs) & 0x3ff));
    }
}

}  // namespace

void ZTCJsonWriter::key(std::string_view aName) {
    text(aName);
    mrText += mIndent != 0 ? ": " : ":";
    mHasKey = true;
}

void ZTCJsonWriter::text(std::string_view aText) {
    beginValue();
    mrText += '"';
    mrText += aText;
    mrText += '"';
}

void ZTCJsonWriter::escapedText(std::string_view aText) {
    beginValue();
    mrText += '"';
    while (!aText.empty()) {
        const ZTSCharacter lFirst = firstCharacterOf(aText);
        sAppendCharacter(mrText, lFirst.mLength != 0 ? lFirst.mCode : sReplacement);
        aText.remove_prefix(lFirst.mLength != 0 ? lFirst.mLength : 1);
    }
    mrText += '"';
}

void ZTCJsonWriter::number(std::uint64_t aNumber) {
    beginValue();
    char lDigits[20];
    mrText.append(lDigits, std::to_chars(lDigits, lDigits + sizeof lDigits, aNumber).ptr);
}

void ZTCJsonWriter::boolean(bool aValue) {
    beginValue();
    mrText += aValue ? "true" : "false";
}

void ZTCJsonWriter::null() {
    beginValue();
    mrText += "null";
}

void ZTCJsonWriter::begin(char aBracket) {
    beginValue();
    mrText += aBracket;
    ++mLevel;
    mIsFirst = true;
}

// What is empty stays on its line.
void ZTCJsonWriter::end(char aBracket) {
    --mLevel;
    if (!mIsFirst) {
        beginLine();
    }
    mrText += aBracket;
    mIsFirst = false;
}

void ZTCJsonWriter::beginValue() {
    if (!mHasKey && mLevel != 0) {
        if (!mIsFirst) {
            mrText += ',';
        }
        beginLine();
    }
    mHasKey = false;
    mIsFirst = false;
}

void ZTCJsonWriter::beginLine() {
    if (mIndent != 0) {
        mrText += '\n';
        mrText.append(std::size_t{mLevel} * mIndent, ' ');
    }
}
