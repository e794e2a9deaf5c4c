// Whatever a command has for sense data and CDB, of whatever length: what is read lies within the bytes.
#include <cstdlib>
#include <vector>

#include "ScsiSense.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* apInput, std::size_t aSize) {
    const std::vector<unsigned char> lExact(apInput, apInput + aSize);
    ZTSScsiSense lSense{0xff, 0xff, 0xff};
    const bool lIsRead = ZTReadScsiSense(lExact.data(), static_cast<__u32>(aSize), &lSense) != 0;
    const bool lIsUntouched = lSense.mKey == 0xff && lSense.mAsc == 0xff && lSense.mAscq == 0xff;
    if (lIsRead ? lSense.mKey > 0xf : !lIsUntouched) {
        abort();
    }
    if (ZTIsScsiRead(lExact.data(), static_cast<__u32>(aSize)) != 0 && aSize < 6) {
        abort();
    }
    return 0;
}
