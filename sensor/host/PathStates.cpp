#include "PathStates.h"

#include <charconv>
#include <utility>

#include "BlockName.h"

namespace {

std::optional<std::uint32_t> sNumber(std::string_view aText) {
    std::uint32_t lNumber = 0;
    const auto lParsed = std::from_chars(aText.begin(), aText.end(), lNumber);
    return lParsed.ec == std::errc() && lParsed.ptr == aText.end() ? std::optional(lNumber) : std::nullopt;
}

}  // namespace

void ZTCPathStates::take(const ZTSUevent& acrEvent) {
    const std::string lDisk(blockIn(acrEvent.mPath).mDisk);
    if (lDisk.empty()) {
        return;
    }
    const std::string_view lAction = acrEvent.find("DM_ACTION");
    if (lAction == "PATH_FAILED" || lAction == "PATH_REINSTATED") {
        takePath(lDisk, readDeviceNumber(acrEvent.find("DM_PATH")), lAction == "PATH_REINSTATED",
                 acrEvent.find("DM_NR_VALID_PATHS"));
    } else if (acrEvent.mAction == "change" && acrEvent.mPath.ends_with(lDisk) &&
               acrEvent.find("SYNTH_UUID").empty()) {
        takeTable(lDisk);
    } else if (acrEvent.mAction == "remove" && acrEvent.mPath.ends_with(lDisk)) {
        // Another one may get its name and its number.
        const auto lMajor = sNumber(acrEvent.find("MAJOR"));
        const auto lMinor = sNumber(acrEvent.find("MINOR"));
        mHasChanged |= lMajor && lMinor && mPaths.erase(ZTDeviceNumber{*lMajor} << 32 | *lMinor) != 0;
        mHasChanged |= mAnswer.erase(lDisk) != 0;
        mTables.erase(lDisk);
    }
}

void ZTCPathStates::takePath(const std::string& acrMap, ZTDeviceNumber aPath, bool aIsUsable,
                             std::string_view aLeft) {
    if (mTables.size() == Most && !mTables.contains(acrMap)) {
        return;
    }
    Table& lrTable = mTables[acrMap];
    if (aPath != 0 && (mPaths.size() < Most || mPaths.contains(aPath))) {
        lrTable.mPaths.insert(aPath);
        mPaths[aPath] = {aIsUsable, 0};
    }
    if (const auto lLeft = sNumber(aLeft)) {
        lrTable.mLeft = lLeft;
        lrTable.mDoubt = 0;
    }
    mHasChanged = true;
}

// In a new table every path begins as a usable one, of which nothing is told: neither what was told of a path
// nor how many were left is of this one. multipathd, which made it, knows.
void ZTCPathStates::takeTable(const std::string& acrMap) {
    const auto lAt = mTables.find(acrMap);
    if (lAt == mTables.end()) {
        return;
    }
    for (const ZTDeviceNumber lPath : lAt->second.mPaths) {
        if (const auto lTold = mPaths.find(lPath); lTold != mPaths.end()) {
            lTold->second.mDoubt = mQuestion + 1;
        }
    }
    mTables.erase(lAt);
    mDoubtedFor = mDoubtedFor != 0 ? mDoubtedFor : DoubtedFor;
    mHasChanged = true;
    askSoon();
}

void ZTCPathStates::doubt() {
    for (auto& [lNumber, lrPath] : mPaths) {
        lrPath.mDoubt = mQuestion + 1;
    }
    for (auto& [lrMap, lrTable] : mTables) {
        lrTable.mDoubt = mQuestion + 1;
    }
    mAnswerDoubt = mQuestion + 1;
    mDoubtedFor = DoubtedFor;
    askSoon();
}

std::optional<std::uint64_t> ZTCPathStates::takeQuestion(bool aIsUntold) {
    const unsigned int lAfter = mIsUrgent ? AtLeast : mIsAgain ? Behind : AMinute;
    if (mSinceQuestion < lAfter || !(mIsUrgent || mIsAgain || aIsUntold)) {
        return {};
    }
    mIsAgain = std::exchange(mIsUrgent, false);
    mSinceQuestion = 0;
    return ++mQuestion;
}

void ZTCPathStates::takeAnswer(const std::vector<ZTSMultipathdPath>& acrPaths, std::uint64_t aQuestion) {
    std::unordered_map<std::string, bool> lAnswer;
    for (const ZTSMultipathdPath& lrPath : acrPaths) {
        if (lAnswer.size() < Most) {
            lAnswer[lrPath.mDisk] = lrPath.mIsUsable;
        }
    }
    forgetDoubtful(aQuestion);
    mAnswer = std::move(lAnswer);
}

void ZTCPathStates::step() {
    ++mSinceQuestion;
    if (mDoubtedFor != 0 && --mDoubtedFor == 0) {
        forgetDoubtful(mQuestion + 1);
    }
}

void ZTCPathStates::forgetDoubtful(std::uint64_t aQuestion) {
    const auto lIsOver = [=](std::uint64_t aDoubt) { return aDoubt != 0 && aDoubt <= aQuestion; };
    std::erase_if(mPaths, [&](const auto& acrPath) { return lIsOver(acrPath.second.mDoubt); });
    std::erase_if(mTables, [&](const auto& acrTable) { return lIsOver(acrTable.second.mDoubt); });
    if (lIsOver(mAnswerDoubt)) {
        mAnswer.clear();
        mAnswerDoubt = 0;
    }
    mHasChanged = true;
}

std::optional<ZTSPath> ZTCPathStates::find(const std::string& acrDisk, ZTDeviceNumber aDevice) const {
    if (const auto lAt = mPaths.find(aDevice); lAt != mPaths.end()) {
        return ZTSPath{acrDisk, lAt->second.mIsUsable, ZTEPathSource::Kernel};
    }
    if (const auto lAt = mAnswer.find(acrDisk); lAt != mAnswer.end()) {
        return ZTSPath{acrDisk, lAt->second, ZTEPathSource::Multipathd};
    }
    return {};
}

std::optional<std::uint32_t> ZTCPathStates::countUsable(const std::string& acrMap) const {
    const auto lAt = mTables.find(acrMap);
    return lAt != mTables.end() ? lAt->second.mLeft : std::nullopt;
}
