// Threads of programs that run for long, each with a name that top -H and ps -L show.
#pragma once

#include <pthread.h>

#include <cstddef>
#include <thread>
#include <utility>

/// The name lives as long as the program does. Throws std::system_error.
template <std::size_t Size, class Work>
std::thread startServiceThread(const char (&aprName)[Size], Work aWork) {
    static_assert(Size <= 16, "the kernel has no room for more");
    return std::thread([&aprName, lWork = std::move(aWork)] {
        pthread_setname_np(pthread_self(), aprName);
        lWork();
    });
}
