// zt-bench-store FILE RECORDS: a large history that ends now, to try programs on.
#include <fmt/format.h>

#include <chrono>
#include <cstdlib>
#include <exception>

#include "LargeStore.h"

int main(int argc, char** argv) try {
    const std::uint64_t lRecords = argc == 3 ? std::strtoull(argv[2], nullptr, 10) : 0;
    if (lRecords == 0) {
        fmt::print(stderr, "usage: zt-bench-store FILE RECORDS\n");
        return 2;
    }
    ztbench::makeLargeStore(
        argv[1], lRecords,
        std::chrono::nanoseconds(std::chrono::system_clock::now().time_since_epoch()).count());
    return 0;
} catch (const std::exception& lrException) {
    fmt::print(stderr, "zt-bench-store: {}\n", lrException.what());
    return 1;
}
