// The pages and sources of the project as a test reads them: what matches in them, tables, literals, options.
#pragma once

#include <map>
#include <regex>
#include <set>
#include <sstream>

#include "TestSupport.h"

using ZTTestTexts = std::vector<std::string>;
using ZTTestMap = std::map<std::string, std::string>;

inline std::string sourceOf(const std::string& acrName) {
    return readFile(ZT_SOURCE_DIR "/" + acrName);
}

/// Of each match, the groups.
inline std::vector<ZTTestTexts> matchesIn(const std::string& acrText, const std::string& acrPattern) {
    const std::regex lPattern(acrPattern);
    std::vector<ZTTestTexts> lMatches;
    for (std::sregex_iterator lAt(acrText.begin(), acrText.end(), lPattern); lAt != std::sregex_iterator();
         ++lAt) {
        lMatches.emplace_back(std::next(lAt->begin()), lAt->end());
    }
    return lMatches;
}

/// The rows of all tables of a page whose columns begin so, each cell without blanks around it.
inline std::vector<ZTTestTexts> rowsOf(const std::string& acrPage, const std::string& acrColumns) {
    std::vector<ZTTestTexts> lRows;
    bool lIsIn = false;
    std::istringstream lPage(sourceOf(acrPage));
    for (std::string lLine; std::getline(lPage, lLine);) {
        const bool lBegins = lLine.starts_with("| " + acrColumns + " |");
        if (lIsIn && lLine.starts_with("| ")) {
            lRows.emplace_back();
            for (const ZTTestTexts& lrCell : matchesIn(lLine, "\\| *([^|]*?) *(?=\\|)")) {
                lRows.back().push_back(lrCell[0]);
            }
        }
        lIsIn = lBegins || (lIsIn && lLine.starts_with("|"));
    }
    EXPECT_FALSE(lRows.empty()) << acrPage << " has no table of " << acrColumns;
    return lRows;
}

/// Two columns of such tables.
inline ZTTestMap mapOf(const char* apPage, const char* apColumns, std::size_t aKey, std::size_t aValue) {
    ZTTestMap lMap;
    for (const ZTTestTexts& lrCells : rowsOf(apPage, apColumns)) {
        EXPECT_TRUE(lMap.emplace(lrCells.at(aKey), lrCells.at(aValue)).second)
            << lrCells[aKey] << " stands twice";
    }
    return lMap;
}

/// Literals one behind the other, as one, without a line end at its end.
inline std::string joined(const std::string& acrLiterals) {
    std::string lText;
    for (const ZTTestTexts& lrLiteral : matchesIn(acrLiterals, "\"((?:[^\"\\\\]|\\\\.)*)\"")) {
        lText += lrLiteral[0];
    }
    return lText.ends_with("\\n") ? lText.substr(0, lText.size() - 2) : lText;
}

/// Words behind one dash or two, and each letter of one such as -[abc].
inline std::set<std::string> optionsIn(const std::string& acrText) {
    std::set<std::string> lOptions;
    for (const ZTTestTexts& lrWord : matchesIn(acrText, "(?:^|[^\\w-])(?:(--?\\w[\\w-]*)|-\\[(\\w+))")) {
        for (const char lLetter : lrWord[1]) {
            lOptions.insert(std::string("-") + lLetter);
        }
        lrWord[0].empty() ? void() : void(lOptions.insert(lrWord[0]));
    }
    return lOptions;
}
