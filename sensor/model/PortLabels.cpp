#include "PortLabels.h"

#include <fmt/format.h>

#include <algorithm>
#include <unordered_map>

#include "ShownText.h"

namespace {

constexpr std::string_view sBlanks = " \t\r";

struct Key {
    std::string_view mName;
    std::string ZTSPortLabel::*mpMember;
};
constexpr Key sKeys[] = {{"array", &ZTSPortLabel::mArray},
                         {"controller", &ZTSPortLabel::mController},
                         {"fabric", &ZTSPortLabel::mFabric},
                         {"switch", &ZTSPortLabel::mSwitchPort}};

// What is wrong with a line.
struct Mistake {
    std::string mText;
};

// KEY=VALUE, or a VALUE alone.
struct Word {
    std::string_view mKey;
    std::string_view mValue;
    bool mIsQuoted = false;
};

std::string sShown(std::string_view aText) {
    return toShownText(aText.substr(0, ZTLongestLabel));
}

void sCheckValue(std::string_view aValue) {
    if (aValue.empty()) {
        throw Mistake{"a word is empty"};
    }
    if (aValue.size() > ZTLongestLabel) {
        throw Mistake{fmt::format("'{}...' is longer than {} bytes", sShown(aValue), ZTLongestLabel)};
    }
    if (toShownText(aValue) != aValue) {
        throw Mistake{fmt::format("'{}' holds what cannot be shown", sShown(aValue))};
    }
}

// The next word of the line, which is taken off it. Nothing: the line is at its end, or at a comment.
std::optional<Word> sNextWord(std::string_view& arLine) {
    arLine.remove_prefix(std::min(arLine.find_first_not_of(sBlanks), arLine.size()));
    if (arLine.empty() || arLine[0] == '#') {
        return {};
    }
    Word lWord;
    std::size_t lEnd = std::min(arLine.find_first_of(" \t\r\"#="), arLine.size());
    if (lEnd != arLine.size() && arLine[lEnd] == '=') {
        if (lEnd == 0) {
            throw Mistake{"nothing stands before a '='"};
        }
        lWord.mKey = arLine.substr(0, lEnd);
        arLine.remove_prefix(lEnd + 1);
    }
    lWord.mIsQuoted = arLine.starts_with('"');
    if (lWord.mIsQuoted) {
        arLine.remove_prefix(1);
        lEnd = arLine.find('"');
        if (lEnd == std::string_view::npos) {
            throw Mistake{"a quote is not closed"};
        }
    } else {
        lEnd = std::min(arLine.find_first_of(" \t\r\"#"), arLine.size());
    }
    lWord.mValue = arLine.substr(0, lEnd);
    arLine.remove_prefix(lEnd + (lWord.mIsQuoted ? 1 : 0));
    if (!arLine.empty() && arLine[0] != '#' && sBlanks.find(arLine[0]) == std::string_view::npos) {
        throw Mistake{fmt::format("no blank behind '{}'", sShown(lWord.mValue))};
    }
    sCheckValue(lWord.mValue);
    return lWord;
}

std::string sReadName(const std::optional<Word>& acrWord) {
    if (!acrWord || !acrWord->mKey.empty()) {
        throw Mistake{"no name stands behind the port"};
    }
    // Where a port is asked for, either may be given.
    if (ZTSWwn::fromText(acrWord->mValue)) {
        throw Mistake{fmt::format("'{}' is a world wide name, not what people call one", acrWord->mValue)};
    }
    return std::string(acrWord->mValue);
}

void sReadProperty(const Word& acrWord, ZTSPortLabel& arLabel) {
    const auto* const lpKey = std::find_if(std::begin(sKeys), std::end(sKeys),
                                           [&](const Key& acrKey) { return acrKey.mName == acrWord.mKey; });
    if (lpKey == std::end(sKeys)) {
        throw Mistake{
            acrWord.mKey.empty()
                ? fmt::format("'{}' is one word too many: quote a name with blanks", sShown(acrWord.mValue))
                : fmt::format("'{}' is none of array, controller, fabric, switch", sShown(acrWord.mKey))};
    }
    std::string& lrMember = arLabel.*(lpKey->mpMember);
    if (!lrMember.empty()) {
        throw Mistake{fmt::format("{} stands there twice", lpKey->mName)};
    }
    lrMember = acrWord.mValue;
}

// The ports with the lines that they stand on, and the names that are taken.
class Reader {
  public:
    void readLine(std::string_view aLine, std::size_t aNumber) {
        const auto lFirst = sNextWord(aLine);
        if (!lFirst) {
            return;
        }
        const auto lPort = lFirst->mKey.empty() ? ZTSWwn::fromText(lFirst->mValue) : std::nullopt;
        if (!lPort) {
            throw Mistake{
                fmt::format("'{}' is not a port's world wide name: 8 hex pairs with colons, or 16 "
                            "hex digits",
                            sShown(lFirst->mKey.empty() ? lFirst->mValue : lFirst->mKey))};
        }
        ZTSPortLabel lLabel;
        lLabel.mName = sReadName(sNextWord(aLine));
        while (const auto lWord = sNextWord(aLine)) {
            sReadProperty(*lWord, lLabel);
        }
        take(*lPort, std::move(lLabel), aNumber);
    }

    ZTSNamesFile mFile;

  private:
    void take(const ZTSWwn& acrPort, ZTSPortLabel aLabel, std::size_t aNumber) {
        if (mFile.mLabels.contains(acrPort)) {
            throw Mistake{fmt::format("{} has a name already", acrPort.toText())};
        }
        if (mFile.mLabels.size() == ZTMostLabels) {
            throw Mistake{fmt::format("more than {} ports", ZTMostLabels)};
        }
        const auto [lNamed, lIsNew] = mNames.try_emplace(aLabel.mName, aNumber);
        if (!lIsNew) {
            throw Mistake{fmt::format("'{}' is the port's of line {}", aLabel.mName, lNamed->second)};
        }
        mFile.mLabels.emplace(acrPort, std::move(aLabel));
    }

    std::unordered_map<std::string, std::size_t> mNames;
};

}  // namespace

ZTSNamesFile readPortLabels(std::string_view aText) {
    constexpr std::string_view lMark = "\xef\xbb\xbf";  // some editors begin a file of UTF-8 with it
    aText.remove_prefix(aText.starts_with(lMark) ? lMark.size() : 0);
    Reader lReader;
    for (std::size_t lNumber = 1; !aText.empty(); ++lNumber) {
        const std::size_t lEnd = std::min(aText.find('\n'), aText.size());
        try {
            lReader.readLine(aText.substr(0, lEnd), lNumber);
        } catch (const Mistake& lrMistake) {
            if (lReader.mFile.mMistakes.size() < ZTMostNamesMistakes) {
                lReader.mFile.mMistakes.push_back({lNumber, lrMistake.mText});
            } else {
                ++lReader.mFile.mMoreMistakes;
            }
        }
        aText.remove_prefix(std::min(lEnd + 1, aText.size()));
    }
    return std::move(lReader.mFile);
}
