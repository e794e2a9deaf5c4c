// A copy of a pointer is one count up and, at its end, one down.
#include <atomic>

#include "Bench.h"
#include "Pointer.h"

namespace {

void incrementAndDecrement(benchmark::State& arState) {
    std::atomic<unsigned int> lCount{1};
    for (auto lStep : arState) {
        lCount.fetch_add(1, std::memory_order_relaxed);
        benchmark::DoNotOptimize(lCount.fetch_sub(1, std::memory_order_acq_rel));
    }
}
BENCHMARK(incrementAndDecrement)->Name("pointer/two atomic counts, the floor")->Repetitions(5);

void copyAndDrop(benchmark::State& arState) {
    const ZTCPointer<int> lPointer(makePointer<int>(1));
    for (auto lStep : arState) {
        const ZTCPointer<int> lCopy(lPointer);
        benchmark::DoNotOptimize(lCopy.get());
    }
}
BENCHMARK(copyAndDrop)->Name("pointer/copy and drop")->Repetitions(5);

}  // namespace
