#include "FpinDescriptor.h"

#include <algorithm>
#include <iterator>

namespace {

constexpr unsigned char sFpinCommand = 0x16;
constexpr std::size_t sHeaderSize = 8;  // of the ELS: the command; of a descriptor: its tag; and a length
constexpr std::size_t sNameSize = 8;

struct Name {
    std::uint32_t mNumber;
    const char* mpText;
};
constexpr Name sLinkEvents[] = {{0, "unknown"},
                                {1, "link failure"},
                                {2, "loss of synchronization"},
                                {3, "loss of signal"},
                                {4, "primitive sequence protocol error"},
                                {5, "invalid transmission word"},
                                {6, "invalid CRC"},
                                {15, "device specific"}};
constexpr Name sReasons[] = {{0, "unknown"}, {1, "timeout"}, {2, "unable to route"}, {15, "device specific"}};
constexpr Name sCongestionEvents[] = {
    {0, "clear"}, {1, "lost credit"}, {2, "credit stall"}, {3, "oversubscription"}, {15, "device specific"}};
constexpr Name sSeverities[] = {{0xf1, "warning"}, {0xf7, "alarm"}};

// Where a number lies behind the descriptor's header; a size of 0: it has none.
struct Field {
    std::size_t mAt = 0;
    std::size_t mSize = 0;
};
struct Layout {
    std::uint32_t mTag;
    const char* mpText;
    std::span<const Name> mEvents;
    std::size_t mSize;  // without the names of its ports, which come last
    Field mDetecting{}, mAttached{}, mEvent{}, mModifier{}, mThreshold{}, mPeriod{}, mCount{}, mSeverity{};
    Field mPortCount{};
};
// In the order of ZTEFpinKind.
constexpr Layout sLayouts[] = {
    {.mTag = 0x00020001,
     .mpText = "link integrity",
     .mEvents = sLinkEvents,
     .mSize = 32,
     .mDetecting = {0, 8},
     .mAttached = {8, 8},
     .mEvent = {16, 2},
     .mModifier = {18, 2},
     .mThreshold = {20, 4},
     .mCount = {24, 4},
     .mPortCount = {28, 4}},
    {.mTag = 0x00020002,
     .mpText = "delivery",
     .mEvents = sReasons,
     .mSize = 20,
     .mDetecting = {0, 8},
     .mAttached = {8, 8},
     .mEvent = {16, 4}},
    {.mTag = 0x00020003,
     .mpText = "peer congestion",
     .mEvents = sCongestionEvents,
     .mSize = 28,
     .mDetecting = {0, 8},
     .mAttached = {8, 8},
     .mEvent = {16, 2},
     .mModifier = {18, 2},
     .mPeriod = {20, 4},
     .mPortCount = {24, 4}},
    {.mTag = 0x00020004,
     .mpText = "congestion",
     .mEvents = sCongestionEvents,
     .mSize = 12,
     .mEvent = {0, 2},
     .mModifier = {2, 2},
     .mPeriod = {4, 4},
     .mSeverity = {8, 1}},
};
static_assert(std::size(sLayouts) == ZTFK_Other);

const char* sFind(std::span<const Name> aNames, std::uint32_t aNumber) {
    const auto lName = std::find_if(aNames.begin(), aNames.end(),
                                    [=](const Name& acrName) { return acrName.mNumber == aNumber; });
    return lName != aNames.end() ? lName->mpText : nullptr;
}

std::uint64_t sNumberIn(std::span<const unsigned char> aBytes, const Field& acrField) {
    std::uint64_t lNumber = 0;
    for (const unsigned char lByte : aBytes.subspan(acrField.mAt, acrField.mSize)) {
        lNumber = lNumber << 8 | lByte;
    }
    return lNumber;
}

std::uint32_t sWordIn(std::span<const unsigned char> aBytes, const Field& acrField) {
    return static_cast<std::uint32_t>(sNumberIn(aBytes, acrField));
}

// The value is at least as long as the layout. False: its list claims more ports than it has.
bool sRead(const Layout& acrLayout, std::span<const unsigned char> aValue, ZTSFpinDescriptor& arOne) {
    arOne.mDetecting = sNumberIn(aValue, acrLayout.mDetecting);
    arOne.mAttached = sNumberIn(aValue, acrLayout.mAttached);
    arOne.mEvent = sWordIn(aValue, acrLayout.mEvent);
    arOne.mModifier = sWordIn(aValue, acrLayout.mModifier);
    arOne.mThreshold = sWordIn(aValue, acrLayout.mThreshold);
    arOne.mCount = sWordIn(aValue, acrLayout.mCount);
    arOne.mPeriod = sWordIn(aValue, acrLayout.mPeriod);
    arOne.mSeverity = static_cast<std::uint8_t>(sNumberIn(aValue, acrLayout.mSeverity));
    const std::size_t lClaimed = sWordIn(aValue, acrLayout.mPortCount);
    const std::size_t lThere = (aValue.size() - acrLayout.mSize) / sNameSize;
    arOne.mPortBytes = aValue.subspan(acrLayout.mSize, std::min(lClaimed, lThere) * sNameSize);
    return lClaimed <= lThere;
}

}  // namespace

std::uint64_t ZTSFpinDescriptor::getPort(std::size_t aAt) const {
    return sNumberIn(mPortBytes, {aAt * sNameSize, sNameSize});
}

const char* ZTSFpinDescriptor::getEventText() const {
    return mKind < ZTFK_Other ? sFind(sLayouts[mKind].mEvents, mEvent) : nullptr;
}

const char* ZTSFpinDescriptor::getSeverityText() const {
    return sFind(sSeverities, mSeverity);
}

const char* getFpinText(ZTEFpinKind aKind) {
    return aKind < ZTFK_Other ? sLayouts[aKind].mpText : nullptr;
}

bool readFpin(std::span<const unsigned char> aEls,
              const std::function<void(const ZTSFpinDescriptor&)>& acrDo) {
    if (aEls.size() < sHeaderSize || aEls[0] != sFpinCommand) {
        return false;
    }
    const std::size_t lSize = sWordIn(aEls, {4, 4});
    aEls = aEls.subspan(sHeaderSize);
    bool lIsWhole = lSize <= aEls.size();
    aEls = aEls.first(std::min(lSize, aEls.size()));
    while (aEls.size() >= sHeaderSize) {
        ZTSFpinDescriptor lOne;
        lOne.mTag = sWordIn(aEls, {0, 4});
        const std::size_t lLength = sWordIn(aEls, {4, 4});
        aEls = aEls.subspan(sHeaderSize);
        if (lLength > aEls.size()) {
            return false;
        }
        const auto lValue = aEls.first(lLength);
        aEls = aEls.subspan(lLength);
        const auto* const lpLayout =
            std::find_if(std::begin(sLayouts), std::end(sLayouts),
                         [&](const Layout& acrLayout) { return acrLayout.mTag == lOne.mTag; });
        lOne.mKind = static_cast<ZTEFpinKind>(lpLayout - std::begin(sLayouts));
        if (lOne.mKind == ZTFK_Other) {
            acrDo(lOne);
        } else if (lValue.size() >= lpLayout->mSize) {
            lIsWhole = sRead(*lpLayout, lValue, lOne) && lIsWhole;
            acrDo(lOne);
        } else {
            lIsWhole = false;
        }
    }
    return lIsWhole && aEls.empty();
}
