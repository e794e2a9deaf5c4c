// The threads that may wait for the history.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "WebAnswer.h"
#include "WebHistory.h"

/// Used by one thread, which never waits for any of these: not when all of them are kept by a disk that
/// stands still, and not at the end.
class ZTCWebWorkers {
  public:
    using Clock = std::chrono::steady_clock;
    using Work = std::function<ZTSWebAnswer(ZTCWebHistory&)>;
    struct Done {
        std::uint64_t mTicket = 0;
        ZTSWebAnswer mAnswer;
    };

    static constexpr std::size_t Threads = 4;
    static constexpr std::size_t MostWaiting = 64;

    /// aHasDone is called by one of the threads when there is something to take; it must not wait, and may be
    /// called as long as the process lives. Throws std::system_error.
    ZTCWebWorkers(const std::string& acrStore, const std::function<void()>& acrHasDone);
    /// Those that are kept are left to themselves.
    ~ZTCWebWorkers();
    ZTCWebWorkers(const ZTCWebWorkers&) = delete;
    ZTCWebWorkers& operator=(const ZTCWebWorkers&) = delete;

    /// What is thrown by the work becomes an answer (WebRoutes.h); what comes behind aEnd, nobody waits for.
    /// Who asks for much keeps no others: a peer has all threads but one, and when too many wait, those of
    /// the peer with the most make room for one with fewer, and have their answer. Returns why it is not
    /// done: too many wait, or the history does not answer. Throws std::bad_alloc.
    std::optional<std::string> ask(std::uint64_t aTicket, const std::string& acrPeer, Clock::time_point aEnd,
                                   Work aWork);
    std::vector<Done> take();
    /// How many work longer than they may: something keeps them.
    std::size_t countKept(Clock::time_point aNow) const;

  private:
    class Shared;
    const std::shared_ptr<Shared> mpShared;
};
