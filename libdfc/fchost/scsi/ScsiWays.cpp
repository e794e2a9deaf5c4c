#include "ScsiWays.h"

#include "ScsiBpf.h"
#include "ScsiPerf.h"

ZTScsiWays getScsiWays(ZTEScsiWays aWhich) {
    ZTScsiWays lWays;
    if (aWhich == ZTSW_Any || aWhich == ZTSW_Bpf) {
        lWays.push_back({"bpf", ZTFF_WayBpf, openScsiBpf});
    }
    if (aWhich == ZTSW_Any || aWhich == ZTSW_Perf) {
        lWays.push_back({"perf", ZTFF_WayPerf, [] { return openScsiPerf(); }});
    }
    return lWays;
}
