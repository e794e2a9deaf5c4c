#include "PerfRing.h"

#include <linux/perf_event.h>

#include <algorithm>
#include <cstring>

namespace {

using Header = perf_event_header;

// What the kernel writes behind the header of what it has lost.
struct Lost {
    std::uint64_t mEvent;
    std::uint64_t mCount;
};

// The first bytes of what is there, if there are as many.
template <class Value>
bool sRead(const unsigned char* apBytes, std::size_t aSize, Value& arValue) {
    if (aSize < sizeof arValue) {
        return false;
    }
    memcpy(&arValue, apBytes, sizeof arValue);
    return true;
}

// Hands on what stands behind the header of a record. False: it is malformed.
bool sHandle(std::uint32_t aType, const unsigned char* apBytes, std::size_t aSize,
             const ZTCPerfRing::Take& acrTake, ZTSPerfLosses& arLosses) {
    std::uint32_t lSize = 0;
    Lost lLost{};
    if (aType == PERF_RECORD_SAMPLE) {
        if (!sRead(apBytes, aSize, lSize) || lSize > aSize - sizeof lSize) {
            return false;
        }
        acrTake(apBytes + sizeof lSize, lSize);
    } else if (aType == PERF_RECORD_LOST) {
        if (!sRead(apBytes, aSize, lLost)) {
            return false;
        }
        arLosses.mTold += lLost.mCount;
    }
    return true;
}

}  // namespace

bool ZTCPerfRing::read(const Take& acrTake, ZTSPerfLosses& arLosses) {
    alignas(std::uint64_t) unsigned char lRecord[UINT16_MAX];
    const std::uint64_t lHead = __atomic_load_n(&mpControl->data_head, __ATOMIC_ACQUIRE);
    std::uint64_t lTail = mpControl->data_tail;
    const bool lHasAny = lTail != lHead;
    while (lTail != lHead) {
        const Header lHeader = copyRecord(lTail, lHead - lTail, lRecord);
        const std::size_t lSize = lHeader.size;
        if (lSize == 0 ||
            !sHandle(lHeader.type, lRecord + sizeof lHeader, lSize - sizeof lHeader, acrTake, arLosses)) {
            ++arLosses.mMalformed;
        }
        // Behind one that is none, where the next one begins is not known.
        lTail = lSize == 0 ? lHead : lTail + lSize;
        __atomic_store_n(&mpControl->data_tail, lTail, __ATOMIC_RELEASE);
    }
    return lHasAny;
}

// Returns its header, with the size 0 if it is none.
perf_event_header ZTCPerfRing::copyRecord(std::uint64_t aFrom, std::uint64_t aLeft,
                                          unsigned char* apRecord) const {
    Header lHeader{};
    if (aLeft < sizeof lHeader || aLeft > mSize) {
        return {};
    }
    copy(aFrom, reinterpret_cast<unsigned char*>(&lHeader), sizeof lHeader);
    if (lHeader.size < sizeof lHeader || lHeader.size > aLeft) {
        return {};
    }
    copy(aFrom, apRecord, lHeader.size);
    return lHeader;
}

void ZTCPerfRing::copy(std::uint64_t aFrom, unsigned char* apTo, std::size_t aSize) const {
    const std::size_t lAt = aFrom & (mSize - 1);
    const std::size_t lFirst = std::min(aSize, mSize - lAt);
    memcpy(apTo, mpData + lAt, lFirst);
    memcpy(apTo + lFirst, mpData, aSize - lFirst);
}
