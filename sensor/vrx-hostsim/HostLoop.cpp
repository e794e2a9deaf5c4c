#include "HostLoop.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace {

constexpr int sTick = 250;  // milliseconds
constexpr std::size_t sMostDatagram = std::size_t{64} * 1024;

}  // namespace

ZTCHostLoop::ZTCHostLoop(const std::string& acrRoot, ZTSSite aSite, int aInput)
    : mHost(acrRoot, std::move(aSite)),
      mMultipathdPath(acrRoot + "/run/multipathd.socket"),
      mInput(aInput),
      mMultipathd(std::in_place, mMultipathdPath, SOCK_STREAM),
      mControl(acrRoot + "/" + ControlPath, SOCK_DGRAM) {}

void ZTCHostLoop::run(int aEnd) {
    for (;;) {
        const int lListener = mMultipathd ? mMultipathd->get() : -1;
        pollfd lPolls[] = {
            {aEnd, POLLIN, 0}, {mControl.get(), POLLIN, 0}, {lListener, POLLIN, 0}, {mInput, POLLIN, 0}};
        if (poll(lPolls, std::size(lPolls), sTick) < 0 && errno != EINTR) {
            throw ZTCHostSimError("the loop cannot wait, expected to be able to");
        }
        if (lPolls[0].revents != 0) {
            return;
        }
        if (lPolls[1].revents != 0) {
            takeDatagram();
        }
        if (lPolls[2].revents != 0) {
            answerAsMultipathd(lListener, mHost.listPaths());
        }
        if (lPolls[3].revents != 0) {
            takeInput();
        }
        mHost.step(ZTCMadeUpHost::Clock::now());
        if (mHost.isMultipathdHere() != mMultipathd.has_value()) {
            mHost.isMultipathdHere() ? static_cast<void>(mMultipathd.emplace(mMultipathdPath, SOCK_STREAM))
                                     : mMultipathd.reset();
        }
    }
}

// Each of the lines, up to the first mistake.
std::string ZTCHostLoop::play(std::string_view aLines) {
    try {
        std::string lAnswer;
        for (const std::string& lrLine : splitHostText(aLines, '\n')) {
            lAnswer += playHostLine(mHost, lrLine);
        }
        return lAnswer.empty() ? "ok\n" : lAnswer;
    } catch (const std::exception& lrException) {
        return std::string("error: ") + lrException.what() + "\n";
    }
}

void ZTCHostLoop::takeDatagram() {
    std::string lText(sMostDatagram, '\0');
    sockaddr_un lSender{};
    socklen_t lLength = sizeof lSender;
    auto* const lpSender = reinterpret_cast<sockaddr*>(&lSender);
    const ssize_t lRead =
        recvfrom(mControl.get(), lText.data(), lText.size(), MSG_DONTWAIT, lpSender, &lLength);
    if (lRead < 0) {
        return;
    }
    const std::string lAnswer = play(std::string_view(lText).substr(0, static_cast<std::size_t>(lRead)));
    if (lLength > offsetof(sockaddr_un, sun_path)) {
        sendto(mControl.get(), lAnswer.data(), lAnswer.size(), MSG_DONTWAIT | MSG_NOSIGNAL, lpSender,
               lLength);
    } else if (lAnswer != "ok\n") {
        fprintf(stderr, "vrx-hostsim: %s", lAnswer.c_str());
    }
}

void ZTCHostLoop::takeInput() {
    char lBytes[4096];
    const ssize_t lRead = read(mInput, static_cast<char*>(lBytes), sizeof lBytes);
    if (lRead <= 0) {
        mInput = -1;  // the host goes on
        return;
    }
    mLine.append(static_cast<const char*>(lBytes), static_cast<std::size_t>(lRead));
    for (std::size_t lEnd = mLine.find('\n'); lEnd != std::string::npos; lEnd = mLine.find('\n')) {
        const std::string lAnswer = play(std::string_view(mLine).substr(0, lEnd));
        if (lAnswer != "ok\n") {
            fputs(lAnswer.c_str(), lAnswer.starts_with("error: ") ? stderr : stdout);
            fflush(stdout);
        }
        mLine.erase(0, lEnd + 1);
    }
}
