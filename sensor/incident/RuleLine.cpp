// A line of a site's configuration that changes the rules.
#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <stdexcept>

#include "IncidentRules.h"
#include "ShownText.h"

namespace {

constexpr unsigned int sMost = 1'000'000'000;
constexpr std::size_t sLongestWord = 64;

using Times = ZTSIncidentTimes;
struct TimeName {
    const char* mpName;
    unsigned int Times::*mpMember;
};
constexpr TimeName sTimes[] = {{"settle", &Times::mSettle},
                               {"tell", &Times::mTell},
                               {"skew", &Times::mSkew},
                               {"join", &Times::mJoin},
                               {"quiet", &Times::mQuiet},
                               {"close", &Times::mClose},
                               {"reopen", &Times::mReopen},
                               {"series", &Times::mSeries},
                               {"baseline_days", &Times::mBaselineDays},
                               {"baseline_least", &Times::mBaselineLeast},
                               {"baseline_times", &Times::mBaselineTimes},
                               {"changes", &Times::mChanges},
                               {"most_changes", &Times::mMostChanges}};

[[noreturn]] void sRefuse(std::string_view aWord, const char* apWhy) {
    throw std::runtime_error(
        fmt::format("'{}' {}", toShownText(aWord.substr(0, std::min(aWord.size(), sLongestWord))), apWhy));
}

unsigned int sReadNumber(std::string_view aText, std::string_view aWord, unsigned int aLeast) {
    unsigned int lNumber = 0;
    const auto [lpEnd, lError] = std::from_chars(aText.data(), aText.data() + aText.size(), lNumber);
    if (lError != std::errc() || lpEnd != aText.data() + aText.size() || lNumber > sMost) {
        sRefuse(aWord, "has no whole number up to 1000000000 where there should be one");
    }
    if (lNumber < aLeast) {
        sRefuse(aWord, "has a number that is too small");
    }
    return lNumber;
}

// "on" or "off".
bool sReadSwitch(std::string_view aText, std::string_view aWord) {
    if (aText != "on" && aText != "off") {
        sRefuse(aWord, "is neither on nor off");
    }
    return aText == "on";
}

// "queue_full=200/60", or "queue_full=200".
void sSetOpening(ZTSClassRow& arRow, std::string_view aName, std::string_view aValue,
                 std::string_view aWord) {
    const auto lSign = findSign(aName);
    if (lSign && rowOf(*lSign).mWeight == ZTEWeight::State) {
        sRefuse(aName, "is a state: one is enough, and no number changes that");
    }
    const std::size_t lSlash = std::min(aValue.find('/'), aValue.size());
    const unsigned int lTimes = sReadNumber(aValue.substr(0, lSlash), aWord, 1);
    bool lIsThere = false;
    for (ZTSOpening& lrOpening : arRow.mOpenings) {
        if (lSign && lrOpening.mSign == *lSign) {
            lIsThere = true;
            lrOpening.mTimes = lTimes;
            if (lSlash != aValue.size()) {
                lrOpening.mWithin = sReadNumber(aValue.substr(lSlash + 1), aWord, 1);
            }
        }
    }
    if (!lIsThere) {
        sRefuse(aName, "is nothing that opens such an incident");
    }
}

void sSetClass(ZTSClassRow& arRow, std::string_view aWord) {
    const std::size_t lEquals = aWord.find('=');
    if (lEquals == std::string_view::npos) {
        arRow.mIsOn = sReadSwitch(aWord, aWord);
        return;
    }
    const std::string_view lName = aWord.substr(0, lEquals);
    const std::string_view lValue = aWord.substr(lEquals + 1);
    if (lName == "patience") {
        arRow.mPatience = sReadNumber(lValue, aWord, 0);
    } else if (lName == "baseline") {
        arRow.mHasBaseline = sReadSwitch(lValue, aWord);
    } else {
        sSetOpening(arRow, lName, lValue, aWord);
    }
}

void sSetTime(ZTSIncidentTimes& arTimes, std::string_view aWord) {
    const std::size_t lEquals = std::min(aWord.find('='), aWord.size());
    const auto* const lpTime = std::ranges::find(sTimes, aWord.substr(0, lEquals), &TimeName::mpName);
    if (lpTime == std::end(sTimes)) {
        sRefuse(aWord, "is none of the times of incidents");
    }
    arTimes.*(lpTime->mpMember) = sReadNumber(aWord.substr(std::min(lEquals + 1, aWord.size())), aWord, 0);
}

// Takes the next word off a line; empty: there is none.
std::string_view sNextWord(std::string_view& arLine) {
    constexpr std::string_view lBlanks = " \t";
    arLine.remove_prefix(std::min(arLine.find_first_not_of(lBlanks), arLine.size()));
    const std::string_view lWord = arLine.substr(0, arLine.find_first_of(lBlanks));
    arLine.remove_prefix(lWord.size());
    return lWord;
}

}  // namespace

void applyRule(ZTSIncidentRules& arRules, std::string_view aLine) {
    ZTSIncidentRules lRules = arRules;
    const std::string_view lWhat = sNextWord(aLine);
    const auto lClass = findIncidentClass(lWhat);
    if (!lClass && lWhat != "times") {
        sRefuse(lWhat, "is no class of incidents, nor 'times'");
    }
    std::string_view lWord = sNextWord(aLine);
    if (lWord.empty()) {
        sRefuse(lWhat, "stands alone: what of it is to be changed?");
    }
    for (; !lWord.empty(); lWord = sNextWord(aLine)) {
        lClass ? sSetClass(*std::ranges::find(lRules.mClasses, *lClass, &ZTSClassRow::mClass), lWord)
               : sSetTime(lRules.mTimes, lWord);
    }
    arRules = std::move(lRules);
}
