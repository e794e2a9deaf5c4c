// A line of the language: words, key=value pairs, and what is in double quotes as one.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// A mistake, in one line: what is wrong, what was expected.
class ZTCHostSimError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// The words of one line; each is taken once, and what is left at the end is a mistake.
class ZTCHostWords {
  public:
    /// # begins a comment. Throws ZTCHostSimError, as all of these do.
    explicit ZTCHostWords(std::string_view aLine);

    /// The next word without a key; aWhat: what it should be, "a disk".
    std::string next(const char* apWhat);
    std::optional<std::string> tryNext();
    /// All words without a key that are left, with blanks between.
    std::string nextText(const char* apWhat);
    /// The value of a key; nothing: it is not there.
    std::optional<std::string> find(std::string_view aKey);
    std::string get(std::string_view aKey, std::string_view aDefault) {
        return find(aKey).value_or(std::string(aDefault));
    }
    std::uint64_t getNumber(std::string_view aKey, std::uint64_t aDefault);
    std::chrono::milliseconds getDuration(std::string_view aKey, std::chrono::milliseconds aDefault);
    /// What stands between commas; none: the key is not there.
    std::vector<std::string> getList(std::string_view aKey);
    /// The words up to the next one without a key, which are taken.
    ZTCHostWords takeKeys();
    /// All pairs that are left, in their order.
    std::vector<std::pair<std::string, std::string>> takePairs();
    bool isEmpty() const { return mWords.empty(); }
    /// Nothing is left.
    void end() const;

  private:
    struct Word {
        bool mIsPair = false;
        std::string mKey;
        std::string mValue;
    };
    ZTCHostWords() = default;

    std::vector<Word> mWords;
};

/// Decimal, or hexadecimal with 0x.
std::uint64_t readHostNumber(std::string_view aText, const char* apWhat);
/// What stands between signs, each.
std::vector<std::string> splitHostText(std::string_view aText, char aSign);
