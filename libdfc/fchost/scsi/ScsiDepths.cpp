#include "ScsiDepths.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <set>

namespace {

constexpr std::size_t sAtOnce = 1024;  // LUNs that a look reads
constexpr const char* sNames[] = {"device/queue_depth"};

// The number that a text begins with and a byte ends; the text goes on behind that byte.
template <class Number>
bool sTakeNumber(std::string_view& arText, char aEnd, Number& arNumber) {
    const auto lParsed = std::from_chars(arText.begin(), arText.end(), arNumber);
    const bool lIsEnd = lParsed.ptr == arText.end();
    if (lParsed.ec != std::errc() || (lIsEnd ? aEnd != '\0' : *lParsed.ptr != aEnd)) {
        return false;
    }
    arText.remove_prefix(static_cast<std::size_t>(lParsed.ptr - arText.begin()) + (lIsEnd ? 0 : 1));
    return true;
}

}  // namespace

ZTCScsiDepths::ZTCScsiDepths(const std::string& acrSysfs, int aKeptBelow, Clock::duration aListing)
    : mSysfs(acrSysfs), mListing(aListing), mKept{aKeptBelow} {}

ZTCScsiDepths::Lun::Lun(const std::string& acrPath, std::uint64_t aInode, ZTSFcKept& arKept)
    : mInode(aInode), mFolder(acrPath, sNames, arKept) {}

// From H:C:I:L.
std::optional<ZTCScsiDepths::Address> ZTCScsiDepths::toAddress(std::string_view aName) {
    Address lAddress;
    const bool lIsOne = sTakeNumber(aName, ':', lAddress.mHost) &&
                        sTakeNumber(aName, ':', lAddress.mChannel) &&
                        sTakeNumber(aName, ':', lAddress.mTarget) && sTakeNumber(aName, '\0', lAddress.mLun);
    return lIsOne ? std::optional(lAddress) : std::nullopt;
}

// False: it cannot be known which there are. Those that were known stay.
bool ZTCScsiDepths::list() {
    std::set<std::uint32_t> lHosts;
    const bool lAreHosts = eachFcName(mSysfs + "/class/fc_host", mKept, [&](const char* apName, auto) {
        std::string_view lName(apName);
        std::uint32_t lHost = 0;
        if (lName.starts_with("host") && (lName.remove_prefix(4), sTakeNumber(lName, '\0', lHost))) {
            lHosts.insert(lHost);
        }
    });
    ++mListings;
    const std::string lClass = mSysfs + "/class/scsi_device/";
    const bool lAreLuns = lAreHosts && eachFcName(lClass, mKept, [&](const char* apName, auto aInode) {
                              const auto lAddress = toAddress(apName);
                              if (!lAddress || lHosts.count(lAddress->mHost) == 0) {
                                  return;
                              }
                              auto lLun = mLuns.find(*lAddress);
                              if (lLun != mLuns.end() && lLun->second.mInode != aInode) {
                                  mLuns.erase(lLun);
                                  lLun = mLuns.end();
                              }
                              if (lLun == mLuns.end()) {
                                  lLun = mLuns.try_emplace(*lAddress, lClass + apName, aInode, mKept).first;
                              }
                              lLun->second.mListing = mListings;
                          });
    if (lAreLuns) {
        std::erase_if(mLuns, [this](const auto& acrLun) { return acrLun.second.mListing != mListings; });
    }
    return lAreLuns;
}

void ZTCScsiDepths::look(std::vector<ZTSScsiDepthChange>& arChanges) {
    mKept.mHasRunOut = false;
    const auto lNow = Clock::now();
    if (lNow >= mNextListing && list()) {
        mNextListing = lNow + mListing;
    }
    auto lLun = mLuns.lower_bound(mTurn);
    for (std::size_t lLeft = std::min(mLuns.size(), sAtOnce); lLeft > 0; --lLeft) {
        lLun = lLun != mLuns.end() ? lLun : mLuns.begin();
        read(lLun->first, lLun->second, arChanges);
        ++lLun;
    }
    mTurn = lLun != mLuns.end() ? lLun->first : Address();
    if (mKept.mHasRunOut) {
        mKept.mBelow /= 2;  // the rest of the process needs them
        std::for_each(mLuns.begin(), mLuns.end(), [](auto& arLun) { arLun.second.mFolder.close(); });
    }
}

void ZTCScsiDepths::read(const Address& acrAddress, Lun& arLun,
                         std::vector<ZTSScsiDepthChange>& arChanges) const {
    ZTCFcFolder::Bytes lBytes;
    arLun.mFolder.begin();
    const auto lDepth = toFcNumber(arLun.mFolder.read(0, lBytes));
    arLun.mFolder.end();
    if (arLun.mFolder.isAbsent(0)) {
        arLun.mDepth.reset();  // what comes in its place is another device
    } else if (lDepth && *lDepth <= UINT32_MAX) {
        const auto lNow = static_cast<std::uint32_t>(*lDepth);
        if (arLun.mDepth && arLun.mDepth != lNow) {
            arChanges.push_back({acrAddress.mHost, acrAddress.mChannel, acrAddress.mTarget, acrAddress.mLun,
                                 *arLun.mDepth, lNow});
        }
        arLun.mDepth = lNow;
    }
}
