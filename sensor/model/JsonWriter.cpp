#include "JsonWriter.h"

#include <charconv>

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

void ZTCJsonWriter::number(std::uint64_t aNumber) {
    beginValue();
    char lDigits[20];
    mrText.append(lDigits, std::to_chars(lDigits, lDigits + sizeof lDigits, aNumber).ptr);
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
