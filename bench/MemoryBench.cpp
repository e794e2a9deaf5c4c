// What a record takes of the memory, in a process that has not held any before: memory that is kept for the
// next records would hide it.
#include <fmt/format.h>
#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "Bench.h"
#include "BenchAgent.h"
#include "Log.h"

namespace {

struct Memory {
    double mHeap;      // what was asked of the heap, with its own overhead
    double mResident;  // what the process has got of the system
};

Memory sMemory() {
    Memory lMemory{};
    const struct mallinfo2 lInfo = mallinfo2();
    lMemory.mHeap = static_cast<double>(lInfo.uordblks + lInfo.hblkhd);
    unsigned long lSize = 0;
    unsigned long lResident = 0;
    unsigned long lShared = 0;
    FILE* const lpFile = fopen("/proc/self/statm", "re");
    if (lpFile != nullptr && fscanf(lpFile, "%lu %lu %lu", &lSize, &lResident, &lShared) == 3) {
        lMemory.mResident =
            static_cast<double>((lResident - lShared) * static_cast<unsigned long>(sysconf(_SC_PAGESIZE)));
    }
    if (lpFile != nullptr) {
        fclose(lpFile);
    }
    return lMemory;
}

struct RecordRow {
    const char* mpName;
    unsigned int mCategory;
    unsigned int mSubcategory;
    unsigned int mPayload;
    unsigned int mRecords;  // below the limit
};
constexpr RecordRow sRecords[] = {
    {"new PLOGI", 1, 1, 20, 9000},
    {"new check condition", 4, 4, 32, 1900},
};

// Of one record.
Memory sMeasure(const RecordRow& acrRow) {
    ztbench::useAgent();
    setLogCode(0);
    ZTCBenchEvent lEvent(acrRow.mCategory, acrRow.mSubcategory, acrRow.mPayload);
    const Memory lBefore = sMemory();
    for (unsigned int lAt = 0; lAt < acrRow.mRecords; ++lAt) {
        lEvent.setName(lAt);
        lEvent.deliver();
    }
    const Memory lBehind = sMemory();
    return {(lBehind.mHeap - lBefore.mHeap) / acrRow.mRecords,
            (lBehind.mResident - lBefore.mResident) / acrRow.mRecords};
}

}  // namespace

void ztbench::memory() {
    fmt::print("\n");
    for (const RecordRow& lrRow : sRecords) {
        int lPipe[2];
        fflush(nullptr);
        if (pipe(lPipe) != 0) {
            throw std::runtime_error("cannot make a pipe");
        }
        const pid_t lChild = fork();
        if (lChild == 0) {
            const Memory lMemory = sMeasure(lrRow);
            exit(write(lPipe[1], &lMemory, sizeof lMemory) == sizeof lMemory ? 0 : 1);
        }
        close(lPipe[1]);
        Memory lMemory{};
        const bool lIsThere = read(lPipe[0], &lMemory, sizeof lMemory) == sizeof lMemory;
        close(lPipe[0]);
        waitpid(lChild, nullptr, 0);
        if (!lIsThere) {
            throw std::runtime_error("no memory was measured");
        }
        ZTSBenchRow{.mName = fmt::format("memory: {}, {} records", lrRow.mpName, lrRow.mRecords),
                    .mMore = fmt::format("{:.1f} bytes a record; of the system {:.1f}", lMemory.mHeap,
                                         lMemory.mResident)}
            .print();
    }
}
