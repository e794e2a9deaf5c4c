// A format, and behind a NUL the data of a ring: whatever they are, what is read lies within them.
#include <linux/perf_event.h>

#include <algorithm>

#include "PerfRing.h"
#include "ScsiSample.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* apInput, std::size_t aSize) {
    const unsigned char* const lpEnd = std::find(apInput, apInput + aSize, '\0');
    try {
        const std::string_view lText(reinterpret_cast<const char*>(apInput), lpEnd - apInput);
        const ZTCScsiSample lSample(ZTCTraceFormat(lText), ZTST_Done);
        std::vector<unsigned char> lData(lpEnd, apInput + aSize);
        lData.resize(1024);
        perf_event_mmap_page lControl{};
        lControl.data_tail = 1000;
        lControl.data_head = 1000 + std::min<std::size_t>(1025, apInput + aSize - lpEnd);
        ZTSPerfLosses lLosses;
        ZTCPerfRing(&lControl, lData.data(), lData.size())
            .read(
                [&](const unsigned char* apSample, std::size_t aLength) {
                    const std::vector<unsigned char> lExact(apSample, apSample + aLength);
                    lSample.read(lExact.data(), aLength);
                },
                lLosses);
    } catch (const ZTCScsiNotAvailable&) {
    }
    return 0;
}
