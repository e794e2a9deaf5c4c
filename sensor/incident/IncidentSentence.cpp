#include "IncidentSentence.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <set>

#include "PortText.h"
#include "ShownText.h"

namespace {

// Words that stand in a place, how many things they name, and whether they begin with a name that somebody
// has chosen.
struct Words {
    std::string mText;
    std::size_t mCount = 1;
    bool mIsName = false;
};

struct Scene {
    const ZTSCase& mrCase;
    const ZTSFit& mrFit;
    const ZTSStoryFrame& mrFrame;
    bool mIsWhole;  ///< not only a part of a sentence

    ZTERestored getRestored() const {
        return mrFit.mpClass != nullptr ? mrFit.mpClass->mRestored : ZTERestored::Silence;
    }
    bool lasts() const { return isLasting(mrCase, *mrFit.mpCluster, getRestored()); }
};

using Places = std::set<ZTSWwn>;

// What the signs that a test holds of name by a member; zeros are left out.
template <class Value, class Test>
std::set<Value> sGather(const Scene& acrScene, Value ZTSSign::*apMember, const Test& acrTest) {
    std::set<Value> lValues;
    for (const ZTSSignSum& lrSum : acrScene.mrFit.mpCluster->mSums) {
        if (acrTest(lrSum.mSign) && lrSum.mSign.*apMember != Value()) {
            lValues.insert(lrSum.mSign.*apMember);
        }
    }
    return lValues;
}

bool sOpens(const Scene& acrScene, const ZTSSign& acrSign) {
    return acrSign.mSign == acrScene.mrFit.mpOpening->mSign;
}

Words sNamesOf(const Places& acrPorts, const Scene& acrScene, bool aWithSwitch = false) {
    std::vector<std::string> lNames;
    for (const ZTSWwn& lrPort : acrPorts) {
        const std::string& lrSwitch = labelOf(acrScene.mrFrame.mrLabels, lrPort).mSwitchPort;
        lNames.push_back(portText(acrScene.mrFrame.mrLabels, lrPort));
        if (aWithSwitch && !lrSwitch.empty()) {
            lNames.back() += fmt::format(" ({})", toShownText(lrSwitch));
        }
    }
    std::ranges::sort(lNames);
    return {listText(lNames), lNames.size(), true};
}

// ---- Places: what a name in braces stands for ----

Words sFabrics(const Scene& acrScene) {
    const auto lFabrics = sGather(acrScene, &ZTSSign::mFabric, [](const ZTSSign&) { return true; });
    if (lFabrics.empty()) {
        return {"the fabric"};
    }
    return {fmt::format("{} {}", lFabrics.size() == 1 ? "fabric" : "fabrics",
                        listText({lFabrics.begin(), lFabrics.end()})),
            lFabrics.size()};
}

Words sHits(const Scene& acrScene) {
    return {acrScene.mIsWhole ? hitsText(acrScene.mrCase) : ""};
}

Words sLeft(const Scene& acrScene) {
    return {acrScene.mIsWhole ? leftText(acrScene.mrCase) : ""};
}

Words sInitiators(const Scene& acrScene) {
    return sNamesOf(sGather(acrScene, &ZTSSign::mInitiator,
                            [&](const ZTSSign& acrSign) { return sOpens(acrScene, acrSign); }),
                    acrScene);
}

// The ports beyond the fabric that are gone from it.
Words sLost(const Scene& acrScene) {
    const auto lIsLoss = [](const ZTSSign& acrSign) {
        return acrSign.mSign == ZTESign::TargetLost || acrSign.mSign == ZTESign::PathLost;
    };
    const Places lPorts = sGather(acrScene, &ZTSSign::mRemote, lIsLoss);
    return lPorts.empty() ? Words{"something"} : sNamesOf(lPorts, acrScene);
}

Words sWhere(const Scene& acrScene) {
    const ZTSFocus& lrFocus = acrScene.mrFit.mpCluster->mFocus;
    switch (lrFocus.mLevel) {
        case ZTEFocus::Pair:
        case ZTEFocus::Remote:
            return {portText(acrScene.mrFrame.mrLabels, lrFocus.mRemote), 1, true};
        case ZTEFocus::Initiator:
            return {"the targets of " + portText(acrScene.mrFrame.mrLabels, lrFocus.mInitiator), 2};
        case ZTEFocus::Fabric:
            return {"the targets in fabric " + toShownText(lrFocus.mName), 2};
        case ZTEFocus::Host:
            return {"this host"};
        default:
            return {toShownText(lrFocus.mName), 1, true};
    }
}

Places sListPorts(const Scene& acrScene) {
    Places lPorts;
    for (const ZTSSignSum& lrSum : acrScene.mrFit.mpCluster->mSums) {
        const ZTSSign& lrSign = lrSum.mSign;
        const ZTSWwn& lrPort = lrSign.mRemote != ZTSWwn() ? lrSign.mRemote : lrSign.mInitiator;
        // Of ports of which some are down again and some are not, those that are.
        const bool lIsOver = acrScene.getRestored() == ZTERestored::Ports &&
                             !acrScene.mrCase.mDown.contains(lrSign.mInitiator);
        if (sOpens(acrScene, lrSign) && lrPort != ZTSWwn() && !lIsOver) {
            lPorts.insert(lrPort);
        }
    }
    return lPorts;
}

// The ports that what opened it is about, one by one.
Words sPorts(const Scene& acrScene) {
    const Places lPorts = sListPorts(acrScene);
    return lPorts.empty() ? sWhere(acrScene) : sNamesOf(lPorts, acrScene);
}

Words sPort(const Scene& acrScene) {
    const Places lPorts = sListPorts(acrScene);
    return lPorts.empty() ? sWhere(acrScene) : sNamesOf(lPorts, acrScene, true);
}

Words sStood(const Scene& acrScene) {
    const std::vector<std::string> lHits = listHits(acrScene.mrCase);
    if (!lHits.empty()) {
        return {listText(lHits), lHits.size(), true};
    }
    const auto lDisks =
        sGather(acrScene, &ZTSSign::mDisk, [&](const ZTSSign& acrSign) { return sOpens(acrScene, acrSign); });
    return lDisks.empty() ? Words{"a disk"}
                          : Words{listText({lDisks.begin(), lDisks.end()}), lDisks.size(), true};
}

std::uint64_t sCount(const Scene& acrScene, ZTESign aSign) {
    std::uint64_t lCount = 0;
    for (const ZTSSignSum& lrSum : acrScene.mrFit.mpCluster->mSums) {
        lCount += lrSum.mSign.mSign == aSign ? lrSum.mSign.mEvents : 0;
    }
    return lCount;
}

Words sTimesOf(std::uint64_t aCount) {
    return {aCount == 1 ? "once" : aCount == 2 ? "twice" : fmt::format("{} times", aCount)};
}
Words sTimes(const Scene& acrScene) {
    const std::uint64_t lCount = sCount(acrScene, acrScene.mrFit.mpOpening->mSign);
    Words lTimes = sTimesOf(lCount);
    lTimes.mText += lCount > 1 && sListPorts(acrScene).size() > 1 ? " in all" : "";
    return lTimes;
}
Words sNumber(const Scene& acrScene) {
    const std::uint64_t lCount = sCount(acrScene, acrScene.mrFit.mpOpening->mSign);
    return {std::to_string(lCount), lCount};
}
Words sLogouts(const Scene& acrScene) {
    return sTimesOf(sCount(acrScene, ZTESign::Logo));
}
Words sSpan(const Scene& acrScene) {
    ZTNanoseconds lFirst = 0;
    ZTNanoseconds lLast = 0;
    const bool lIsOfState = acrScene.getRestored() != ZTERestored::Silence;
    for (const ZTSSignSum& lrSum : acrScene.mrFit.mpCluster->mSums) {
        const ZTSSign& lrSign = lrSum.mSign;
        const bool lOpens = sOpens(acrScene, lrSign);
        if (lOpens && (lFirst == 0 || lrSign.mFirst < lFirst)) {
            lFirst = lrSign.mFirst;
        }
        // A state is over when its other half has come.
        if (lOpens || (lIsOfState && isOtherHalf(lrSign.mSign))) {
            lLast = std::max(lLast, lrSign.mLast);
        }
    }
    if (acrScene.lasts()) {
        // What was up meanwhile is down since it went last.
        ZTNanoseconds lDown = 0;
        for (const ZTSSignSum& lrSum : acrScene.mrFit.mpCluster->mSums) {
            const auto lAt = acrScene.mrCase.mDown.find(lrSum.mSign.mInitiator);
            if (sOpens(acrScene, lrSum.mSign) && lAt != acrScene.mrCase.mDown.end()) {
                lDown = lDown == 0 ? lAt->second : std::min(lDown, lAt->second);
            }
        }
        return {" since " + minuteText(std::max(lFirst, lDown))};
    }
    return {spanText(lFirst, lLast)};
}

Words sAt(const Scene& acrScene) {
    return {" at " + minuteText(causeOf(acrScene.mrCase, *acrScene.mrFit.mpCluster, acrScene.mrFrame).mTime)};
}

Words sPaths(const Scene& acrScene) {
    return {pathsText(acrScene.mrCase, acrScene.mrFrame), 1, true};
}

struct Place {
    std::string_view mName;
    Words (*mpWords)(const Scene&);
};
constexpr Place sPlaces[] = {
    {"at", sAt},       {"fabrics", sFabrics}, {"hits", sHits},   {"initiators", sInitiators},
    {"left", sLeft},   {"logouts", sLogouts}, {"lost", sLost},   {"number", sNumber},
    {"paths", sPaths}, {"port", sPort},       {"ports", sPorts}, {"span", sSpan},
    {"stood", sStood}, {"times", sTimes},     {"where", sWhere}};

// ---- Sentences ----

/// Fills one, from left to right. What is filled in is not read again: people choose it.
class Filler {
  public:
    explicit Filler(const Scene& acrScene) : mrScene(acrScene), mCount(sPorts(acrScene).mCount) {}

    void fill(std::string_view aSentence) {
        while (!aSentence.empty()) {
            const std::size_t lPlain = std::min(aSentence.find_first_of("{[("), aSentence.size());
            mText += aSentence.substr(0, lPlain);
            aSentence.remove_prefix(lPlain);
            if (!aSentence.empty()) {
                const std::size_t lEnd = findEnd(aSentence);
                fillIn(aSentence[0], aSentence.substr(1, lEnd - 1));
                aSentence.remove_prefix(lEnd + 1);
            }
        }
    }

    std::string mText;
    bool mBeginsWithName = false;

  private:
    void fillIn(char aBracket, std::string_view aWhat) {
        if (aBracket == '{') {
            fillPlace(aWhat);
            return;
        }
        const std::size_t lBar = findBar(aWhat);
        const bool lIsFirst = aBracket == '[' ? mCount == 1 : mrScene.lasts();
        fill(lIsFirst ? aWhat.substr(0, lBar) : aWhat.substr(std::min(lBar + 1, aWhat.size())));
    }
    void fillPlace(std::string_view aName) {
        if (aName == "says") {
            fill(mrScene.mrFit.mpOpening->mpSays);
            return;
        }
        const auto* const lpPlace = std::ranges::find(sPlaces, aName, &Place::mName);
        if (lpPlace != std::end(sPlaces)) {
            const Words lWords = lpPlace->mpWords(mrScene);
            mBeginsWithName = mBeginsWithName || (mText.empty() && lWords.mIsName);
            mText += lWords.mText;
            mCount = lWords.mCount;
        }
    }
    // Where the bracket that it begins with is closed.
    static std::size_t findEnd(std::string_view aText) {
        std::size_t lDepth = 0;
        for (std::size_t lAt = 0; lAt < aText.size(); ++lAt) {
            lDepth += std::string_view("{[(").find(aText[lAt]) != std::string_view::npos ? 1 : 0;
            lDepth -= std::string_view("}])").find(aText[lAt]) != std::string_view::npos ? 1 : 0;
            if (lDepth == 0) {
                return lAt;
            }
        }
        return aText.size() - 1;
    }
    // The bar that is in no bracket.
    static std::size_t findBar(std::string_view aText) {
        std::size_t lDepth = 0;
        for (std::size_t lAt = 0; lAt < aText.size(); ++lAt) {
            lDepth += std::string_view("{[(").find(aText[lAt]) != std::string_view::npos ? 1 : 0;
            lDepth -= std::string_view("}])").find(aText[lAt]) != std::string_view::npos ? 1 : 0;
            if (lDepth == 0 && aText[lAt] == '|') {
                return lAt;
            }
        }
        return aText.size();
    }

    const Scene& mrScene;
    std::size_t mCount;  // of what stands before
};

}  // namespace

std::string fillSentence(const char* apSentence, const ZTSCase& acrCase, const ZTSFit& acrFit,
                         const ZTSStoryFrame& acrFrame, bool aIsWhole) {
    const Scene lScene{acrCase, acrFit, acrFrame, aIsWhole};
    Filler lFiller(lScene);
    lFiller.fill(apSentence);
    if (aIsWhole && !lFiller.mBeginsWithName && !lFiller.mText.empty()) {
        lFiller.mText[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(lFiller.mText[0])));
    }
    return lFiller.mText;
}
