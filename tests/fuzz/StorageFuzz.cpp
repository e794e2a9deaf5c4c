// Whatever a LUN says of itself, and whatever a table of mounts holds: what is made of it can be shown, and
// is no longer than it may be.
#include <cstdlib>
#include <vector>

#include "MountTable.h"
#include "ShownText.h"
#include "VitalData.h"

namespace {

void check(const std::string& acrText, std::size_t aLongest) {
    if (acrText.size() > aLongest || toShownText(acrText) != acrText) {
        abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* apInput, std::size_t aSize) {
    const std::vector<unsigned char> lExact(apInput, apInput + aSize);
    check(readWwid(lExact), 4 + 4 * 255);
    check(readSerial(lExact), 4 * 255);
    constexpr std::size_t lMost = 8;
    const std::string lText(lExact.begin(), lExact.end());
    std::size_t lLeftOut = 0;
    auto lMounted = readMountInfo(lText, lMost, lLeftOut);
    if (lMounted.size() > lMost || (lLeftOut != 0 && lMounted.size() < lMost)) {
        abort();
    }
    for (const ZTSMounted& lrSwap : readSwaps(lText, lMounted)) {
        lMounted.push_back(lrSwap);
    }
    for (const ZTSMounted& lrMounted : lMounted) {
        check(lrMounted.mPoint, 4 * 4096);
        check(lrMounted.mType, 4 * 64);
    }
    return 0;
}
