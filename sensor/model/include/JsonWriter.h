// JSON as text, written value by value: for records, of which there may be millions.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

/// Adds to a text, in ASCII. One thread.
class ZTCJsonWriter {
  public:
    /// aIndent: so many blanks a level, over several lines; 0: all on one line.
    explicit ZTCJsonWriter(std::string& arText, unsigned int aIndent = 0)
        : mrText(arText), mIndent(aIndent) {}

    void beginObject() { begin('{'); }
    void endObject() { end('}'); }
    void beginList() { begin('['); }
    void endList() { end(']'); }
    void key(std::string_view aName);  ///< its value comes next
    /// It must be printable ASCII without quotation marks and backslashes.
    void text(std::string_view aText);
    /// Any text. What is not of UTF-8 in it becomes U+FFFD, a byte each.
    void escapedText(std::string_view aText);
    void number(std::uint64_t aNumber);
    void boolean(bool aValue);
    void null();
    /// A text, or null if it is empty.
    void textOrNull(std::string_view aText) { aText.empty() ? null() : text(aText); }
    void escapedTextOrNull(std::string_view aText) { aText.empty() ? null() : escapedText(aText); }

  private:
    void begin(char aBracket);
    void end(char aBracket);
    void beginValue();
    void beginLine();

    std::string& mrText;
    const unsigned int mIndent;
    unsigned int mLevel = 0;
    bool mIsFirst = true;  ///< nothing stands in the object or list yet
    bool mHasKey = false;  ///< a key waits for its value
};
