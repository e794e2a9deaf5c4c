// A copy of a pointer is one count up and, at its end, one down.
#include <atomic>

#include "Bench.h"
#include "Pointer.h"

void ztbench::pointer() {
    std::atomic<unsigned int> lCount{1};
    const ZTCBenchGroup lGroup("pointer", {"two atomic counts", [&] {
                                               return [&](unsigned int) {
                                                   lCount.fetch_add(1, std::memory_order_relaxed);
                                                   keep(lCount.fetch_sub(1, std::memory_order_acq_rel));
                                               };
                                           }});
    const ZTCPointer<int> lPointer(makePointer<int>(1));
    lGroup.measure({"copy and drop", [&] {
                        return [&](unsigned int) {
                            const ZTCPointer<int> lCopy(lPointer);
                            keep(lCopy.get());
                        };
                    }});
}
