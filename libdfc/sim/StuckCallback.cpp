#include "StuckCallback.h"

#include <sys/mman.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <system_error>
#include <thread>

namespace {

constexpr size_t sPageSize = 65536;
constexpr uint32_t sRscnLength = 8;

// Written once, before the handler is there, and never taken back.
char* spPage = nullptr;
struct sigaction sEarlier {};

// Holds a thread that touched the page; what is not ours goes to who was here before.
void sOnFault(int aSignal, siginfo_t* apInfo, void* apContext) {
    const auto* const lpAddress = static_cast<const char*>(apInfo->si_addr);
    while (lpAddress >= spPage && lpAddress < spPage + sPageSize) {
        prctl(PR_SET_NAME, "stuck-callback");
        pause();
    }
    if ((sEarlier.sa_flags & SA_SIGINFO) != 0) {
        sEarlier.sa_sigaction(aSignal, apInfo, apContext);
    } else if (sEarlier.sa_handler == SIG_DFL || sEarlier.sa_handler == SIG_IGN) {
        signal(aSignal, SIG_DFL);  // the access is repeated, and ends the process
    } else {
        sEarlier.sa_handler(aSignal);
    }
}

bool sInstall() {
    void* const lpPage = mmap(nullptr, sPageSize, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (lpPage == MAP_FAILED) {
        throw std::system_error(errno, std::generic_category(), "a page that cannot be read");
    }
    spPage = static_cast<char*>(lpPage);
    struct sigaction lAction {};
    lAction.sa_flags = SA_SIGINFO | SA_ONSTACK;
    lAction.sa_sigaction = sOnFault;
    sigaction(SIGSEGV, nullptr, &sEarlier);
    sigaction(SIGSEGV, &lAction, nullptr);
    return true;
}

}  // namespace

void startStuckCallback(const ZTCSimulator::Registration& acrRegistration) {
    static const bool sIsInstalled = sInstall();
    static_cast<void>(sIsInstalled);
    std::thread([acrRegistration] {
        acrRegistration->mpByMask(acrRegistration->mBoard, spPage, sRscnLength);
    }).detach();
}
