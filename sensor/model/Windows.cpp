#include "Windows.h"

#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>

#include "PortLabels.h"
#include "ShownText.h"
#include "WhenText.h"

namespace {

constexpr std::string_view sBlanks = " \t";
constexpr std::string_view sHost = "host";
constexpr std::string_view sFabric = "fabric=";
constexpr std::size_t sLongestText = 200;
constexpr std::size_t sLongestWhat = 2 * ZTLongestLabel + 1;  // ARRAY/CONTROLLER

[[noreturn]] void sRefuse(const std::string& acrWhy) {
    throw std::runtime_error(acrWhy);
}

std::string_view sTrimmed(std::string_view aText) {
    aText.remove_prefix(std::min(aText.find_first_not_of(sBlanks), aText.size()));
    return aText.substr(0, aText.find_last_not_of(sBlanks) + 1);
}

// Takes the next word off the text; what has blanks stands in quotes.
std::string sNextWord(std::string_view& arText) {
    arText = sTrimmed(arText);
    std::string lWord;
    bool lIsQuoted = false;
    std::size_t lAt = 0;
    for (; lAt < arText.size() && (lIsQuoted || sBlanks.find(arText[lAt]) == std::string_view::npos); ++lAt) {
        if (arText[lAt] == '"') {
            lIsQuoted = !lIsQuoted;
        } else {
            lWord += arText[lAt];
        }
    }
    if (lIsQuoted) {
        sRefuse("a quote is not closed");
    }
    arText.remove_prefix(lAt);
    return lWord;
}

std::string sShown(std::string_view aText) {
    return toShownText(aText.substr(0, ZTLongestLabel));
}

// One that depends on the moment in which it is read is none here.
ZTNanoseconds sReadMoment(const std::string& acrText) {
    const auto lTime = readWhen(acrText, 0, zoneOfProcess);
    if (!lTime || lTime != readWhen(acrText, 400 * 86400 * ZTSecond, zoneOfProcess)) {
        sRefuse(fmt::format("'{}' is no moment such as 2026-11-21T20:00", sShown(acrText)));
    }
    return *lTime;
}

void sCheckText(const std::string& acrText, std::size_t aLongest) {
    if (acrText.size() > aLongest) {
        sRefuse(fmt::format("'{}...' is longer than {} bytes", sShown(acrText), aLongest));
    }
    if (toShownText(acrText) != acrText) {
        sRefuse(fmt::format("'{}' holds what cannot be shown", sShown(acrText)));
    }
}

bool sIsPort(const std::string& acrWhat, const ZTPortLabels& acrLabels, const ZTSWwn& acrPort) {
    if (acrPort == ZTSWwn()) {
        return false;
    }
    if (const auto lNumber = ZTSWwn::fromText(acrWhat)) {
        return *lNumber == acrPort;
    }
    const auto lAt = acrLabels.find(acrPort);
    if (lAt == acrLabels.end()) {
        return false;
    }
    const ZTSPortLabel& lrLabel = lAt->second;
    const bool lHasArray = !lrLabel.mArray.empty();
    return acrWhat == lrLabel.mName || (lHasArray && acrWhat == lrLabel.mArray) ||
           (lHasArray && !lrLabel.mController.empty() &&
            acrWhat == lrLabel.mArray + "/" + lrLabel.mController);
}

// A switch's world wide name may be written in more than one form.
bool sIsFabric(const std::string& acrName, std::string_view aFabric) {
    const auto lNumber = ZTSWwn::fromText(acrName);
    return !aFabric.empty() && (aFabric == acrName || (lNumber && lNumber == ZTSWwn::fromText(aFabric)));
}

bool sIsOf(const std::string& acrWhat, const ZTPortLabels& acrLabels, const ZTSSeries& acrPair) {
    return acrWhat.starts_with(sFabric) ? sIsFabric(acrWhat.substr(sFabric.size()), acrPair.mFabric)
                                        : sIsPort(acrWhat, acrLabels, acrPair.mInitiator.mPort) ||
                                              sIsPort(acrWhat, acrLabels, acrPair.mRemote.value_or(ZTSWwn()));
}

}  // namespace

ZTSWindow parseWindow(std::string_view aText) {
    ZTSWindow lWindow;
    lWindow.mWhat = sNextWord(aText);
    const std::string lFirst = sNextWord(aText);
    const std::string lLast = sNextWord(aText);
    if (lWindow.mWhat.empty() || lWindow.mWhat == sFabric || lLast.empty()) {
        sRefuse("a window is WHAT FROM UNTIL [TEXT]");
    }
    lWindow.mText = sTrimmed(aText);
    sCheckText(lWindow.mWhat, sLongestWhat);
    sCheckText(lWindow.mText, sLongestText);
    lWindow.mFirst = sReadMoment(lFirst);
    lWindow.mLast = sReadMoment(lLast);
    if (lWindow.mLast <= lWindow.mFirst) {
        sRefuse(fmt::format("'{}' is not behind '{}'", sShown(lLast), sShown(lFirst)));
    }
    return lWindow;
}

const ZTSWindow* findWindow(const std::vector<ZTSWindow>& acrWindows, const ZTPortLabels& acrLabels,
                            ZTNanoseconds aFirst, ZTNanoseconds aLast, const ZTSWwn& acrInitiator,
                            const ZTSWwn& acrRemote, std::string_view aFabric) {
    ZTSSeries lPair;
    lPair.mInitiator.mPort = acrInitiator;
    lPair.mRemote = acrRemote;
    lPair.mFabric = aFabric;
    return findWindow(acrWindows, acrLabels, aFirst, aLast, std::span(&lPair, 1));
}

const ZTSWindow* findWindow(const std::vector<ZTSWindow>& acrWindows, const ZTPortLabels& acrLabels,
                            ZTNanoseconds aFirst, ZTNanoseconds aLast, std::span<const ZTSSeries> aPairs) {
    const auto lAt = std::find_if(acrWindows.begin(), acrWindows.end(), [&](const ZTSWindow& acrWindow) {
        const auto lIsOf = [&](const ZTSSeries& acrPair) {
            return sIsOf(acrWindow.mWhat, acrLabels, acrPair);
        };
        return aLast >= acrWindow.mFirst && aFirst <= acrWindow.mLast &&
               (acrWindow.mWhat == sHost || std::any_of(aPairs.begin(), aPairs.end(), lIsOf));
    });
    return lAt != acrWindows.end() ? &*lAt : nullptr;
}
