// Runs the groups of benchmarks, or those whose names contain one of the arguments.
#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <string_view>

#include "Bench.h"

namespace {

struct GroupRow {
    std::string_view mName;
    void (*mpRun)();
};
constexpr GroupRow sGroups[] = {
    {"memory", ztbench::memory},
    {"event", ztbench::events},
    {"fill", ztbench::fill},
    {"fetch", ztbench::fetch},
    {"statistics", ztbench::statistics},
    {"wake", ztbench::wake},
    {"process", ztbench::process},
    {"log caller", ztbench::logCaller},
    {"log rate", ztbench::logRate},
    {"pointer", ztbench::pointer},
    {"scsi", ztbench::scsi},
    {"look", ztbench::look},
    {"sensor", ztbench::sensor},
    {"host", ztbench::host},
    {"fold", ztbench::fold},
    {"incident", ztbench::incidents},
    {"store", ztbench::store},
    {"web", ztbench::web},
};

}  // namespace

int main(int argc, char** argv) try {
    fmt::print(
        "Each row is measured in turns with its group's floor. ns: of one call, the median of the turns. x floor:\n"
        "the median of the ratios of neighbouring turns, and in which range half of them lie. Then p50, p99 and\n"
        "p99.9 of single calls in ns, and those of the floor beside it: what the machine alone does to a call.\n\n"
        "{:<66} {:>9} {:>21}   {:>7} {:>7} {:>7}   {:>7} {:>7} {:>7}  {}\n",
        "what", "ns", "x floor", "p50", "p99", "p99.9", "(floor)", "p99", "p99.9", "more");
    fflush(stdout);
    for (const auto& [lName, lpRun] : sGroups) {
        if (argc == 1 || std::any_of(argv + 1, argv + argc, [lName = lName](const char* apPart) {
                return lName.find(apPart) != std::string_view::npos;
            })) {
            lpRun();
        }
    }
    return 0;
} catch (const std::exception& lrException) {
    fmt::print(stderr, "zt-bench: {}\n", lrException.what());
    return 1;
}
