#include "Notify.h"

#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <ctime>

ZTCNotify::ZTCNotify() {
    const char* const lpPath = getenv("NOTIFY_SOCKET");
    const std::size_t lLength = lpPath != nullptr ? strlen(lpPath) : 0;
    if (lLength < 2 || lLength >= sizeof mAddress.sun_path || (lpPath[0] != '/' && lpPath[0] != '@')) {
        return;
    }
    mAddress.sun_family = AF_UNIX;
    memcpy(mAddress.sun_path, lpPath, lLength);
    mAddress.sun_path[0] = lpPath[0] == '@' ? '\0' : '/';  // an abstract one
    mAddressSize = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + lLength);
    mSocket = ZTCSensorDescriptor(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const char* const lpPeriod = getenv("WATCHDOG_USEC");
    const char* const lpProcess = getenv("WATCHDOG_PID");
    if (lpPeriod != nullptr && (lpProcess == nullptr || atol(lpProcess) == getpid())) {
        mWatchdog = std::chrono::microseconds(strtoll(lpPeriod, nullptr, 10));
    }
}

bool ZTCNotify::send(const std::string& acrText) const {
    return !mSocket.isOpen() || sendto(mSocket.get(), acrText.data(), acrText.size(), MSG_NOSIGNAL,
                                       reinterpret_cast<const sockaddr*>(&mAddress), mAddressSize) >= 0;
}

void ZTCNotify::tellReady() {
    mOwesReady = !send("READY=1");
}

void ZTCNotify::tellReloading() {
    timespec lNow{};
    clock_gettime(CLOCK_MONOTONIC, &lNow);
    send("RELOADING=1\nMONOTONIC_USEC=" + std::to_string(lNow.tv_sec * 1'000'000 + lNow.tv_nsec / 1000));
}

void ZTCNotify::tellStopping() {
    mOwesReady = false;
    send("STOPPING=1\nSTATUS=ending");
}

void ZTCNotify::tellStatus(const std::string& acrText) {
    send("STATUS=" + acrText);
}

void ZTCNotify::feed(Clock::time_point aNow) {
    if (mOwesReady) {
        tellReady();
    }
    if (mWatchdog.count() > 0 && aNow - mFed >= mWatchdog / 2) {
        mFed = aNow;
        send("WATCHDOG=1");
    }
}
