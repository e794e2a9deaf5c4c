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
    } else if (acrEvent.mAction == "change" && acrEvent.mPath.ends_with(lDisk)) {
        // Of a map: it may have a new table, and the number was of the one before.
        mHasChanged |= mLeft.erase(lDisk) != 0;
    } else if (acrEvent.mAction == "remove" && acrEvent.mPath.ends_with(lDisk)) {
        // Another one may get its name and its number.
        const auto lMajor = sNumber(acrEvent.find("MAJOR"));
        const auto lMinor = sNumber(acrEvent.find("MINOR"));
        mHasChanged |= lMajor && lMinor && mPaths.erase(ZTDeviceNumber{*lMajor} << 32 | *lMinor) != 0;
        mHasChanged |= mAnswer.erase(lDisk) != 0;
        mLeft.erase(lDisk);
    }
}

void ZTCPathStates::takePath(const std::string& acrMap, ZTDeviceNumber aPath, bool aIsUsable,
                             std::string_view aLeft) {
    if (aPath != 0 && (mPaths.size() < Most || mPaths.contains(aPath))) {
        mPaths[aPath] = {aIsUsable, mDoubts};
    }
    const auto lLeft = sNumber(aLeft);
    if (lLeft && (mLeft.size() < Most || mLeft.contains(acrMap))) {
        mLeft[acrMap] = {*lLeft, mDoubts};
    }
    mHasChanged = true;
}

void ZTCPathStates::doubt() {
    ++mDoubts;
    mDoubtedFor = DoubtedFor;
}

void ZTCPathStates::takeAnswer(const std::vector<ZTSMultipathdPath>& acrPaths) {
    std::unordered_map<std::string, bool> lAnswer;
    for (const ZTSMultipathdPath& lrPath : acrPaths) {
        if (lAnswer.size() < Most) {
            lAnswer[lrPath.mDisk] = lrPath.mIsUsable;
        }
    }
    forgetDoubtful();
    mAnswer = std::move(lAnswer);
    mDoubtedFor = 0;
}

void ZTCPathStates::step() {
    if (mDoubtedFor != 0 && --mDoubtedFor == 0) {
        forgetDoubtful();
    }
}

void ZTCPathStates::forgetDoubtful() {
    const auto lIsDoubtful = [this](const auto& acrTold) { return acrTold.second.mDoubts != mDoubts; };
    std::erase_if(mPaths, lIsDoubtful);
    std::erase_if(mLeft, lIsDoubtful);
    mAnswer.clear();
    mHasChanged = true;
}

std::optional<ZTSPath> ZTCPathStates::find(const std::string& acrDisk, ZTDeviceNumber aDevice) const {
    if (const auto lAt = mPaths.find(aDevice); lAt != mPaths.end()) {
        return ZTSPath{acrDisk, lAt->second.mValue, ZTEPathSource::Kernel};
    }
    if (const auto lAt = mAnswer.find(acrDisk); lAt != mAnswer.end()) {
        return ZTSPath{acrDisk, lAt->second, ZTEPathSource::Multipathd};
    }
    return {};
}

std::optional<std::uint32_t> ZTCPathStates::countUsable(const std::string& acrMap) const {
    const auto lAt = mLeft.find(acrMap);
    return lAt != mLeft.end() ? std::optional(lAt->second.mValue) : std::nullopt;
}
