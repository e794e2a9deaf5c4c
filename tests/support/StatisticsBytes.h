// A file of statistics, byte by byte, as docs/statistics.md has it.
#pragma once

#include <unistd.h>

#include <string>
#include <utility>
#include <vector>

using ZTTestRows = std::vector<std::pair<std::string, unsigned long>>;

template <class Value>
std::string ZTTestHostOrder(Value aValue) {
    return {reinterpret_cast<const char*>(&aValue), sizeof aValue};
}

/// Of a process that has written it for a wake of 7.
inline std::string ZTTestStatisticsOf(const ZTTestRows& acrRows,
                                      unsigned long aProcess = static_cast<unsigned long>(getpid()),
                                      unsigned int aRowSize = 64) {
    std::string lBytes = "VRXSTAT1" + ZTTestHostOrder(static_cast<unsigned int>(acrRows.size())) +
                         ZTTestHostOrder(aRowSize) + ZTTestHostOrder(5'000'000'000UL) +
                         ZTTestHostOrder(aProcess) + ZTTestHostOrder(7U) + std::string(28, '\0');
    for (const auto& [lName, lValue] : acrRows) {
        lBytes += lName + std::string(56 - lName.size(), '\0') + ZTTestHostOrder(lValue);
        lBytes.resize(lBytes.size() + (aRowSize > 64 ? aRowSize - 64 : 0), 'x');
    }
    return lBytes;
}
