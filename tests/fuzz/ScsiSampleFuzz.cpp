// A format, or one that is right if it is not, and behind a NUL the data of a ring: what is read lies within
// them.
#include <linux/perf_event.h>

#include <algorithm>

#include "PerfRing.h"
#include "ScsiSample.h"

static ZTCScsiSample sSampleOf(const std::string& acrText) {
    try {
        return {ZTCTraceFormat(acrText), ZTST_Done};
    } catch (const ZTCScsiNotAvailable&) {
        std::string lText = "ID: 1\n\tfield:u16 common_type;\toffset:0;\tsize:2;\n";
        for (const char* const lpName : {"host_no", "channel", "id", "lun", "result", "opcode", "ascq"}) {
            lText += std::string("\tfield:u8 ") + lpName + ";\toffset:5;\tsize:4;\n";
        }
        return {ZTCTraceFormat(lText), ZTST_Done};
    }
}

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* apInput, std::size_t aSize) {
    const std::string lInput(apInput, apInput + aSize);
    const std::string lText = lInput.substr(0, lInput.find('\0'));
    const ZTCScsiSample lSample = sSampleOf(lText);
    std::vector<unsigned char> lData(lInput.begin() + static_cast<std::ptrdiff_t>(lText.size()),
                                     lInput.end());
    perf_event_mmap_page lControl{};
    lControl.data_tail = 1000;
    lControl.data_head = 1000 + std::min<std::size_t>(1025, lData.size());
    lData.resize(1024);
    std::rotate(lData.begin(), lData.begin() + 24, lData.end());  // the first behind the tail
    const auto lTake = [&](const unsigned char* apSample, std::size_t aLength) {
        lSample.read(std::vector<unsigned char>(apSample, apSample + aLength).data(), aLength);
    };
    ZTSPerfLosses lLosses;
    ZTCPerfRing(&lControl, lData.data(), lData.size()).read(lTake, lLosses);
    return 0;
}
