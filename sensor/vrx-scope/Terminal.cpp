#include "Terminal.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <sstream>
#include <string_view>

#include "Failure.h"
#include "ShownText.h"

namespace {

constexpr ZTSTerminalSize sUsual{80, 24};
constexpr int sLookEvery = 200;  // milliseconds, for a signal, while nobody reads the output
constexpr char sBold[] = "\x1b[1m";
constexpr char sPlain[] = "\x1b[0m";

// Whether a signal waits that would end the program if it were not blocked.
bool sIsAskedToEnd() {
    sigset_t lPending;
    sigpending(&lPending);
    return sigismember(&lPending, SIGINT) == 1 || sigismember(&lPending, SIGTERM) == 1 ||
           sigismember(&lPending, SIGHUP) == 1;
}

// The beginning of a line that fits, where the sequences for colours take no room, nor does what follows the
// first byte of a character.
std::string sCut(const std::string& acrLine, std::size_t aColumns) {
    std::string lCut;
    std::size_t lShown = 0;
    for (std::size_t lAt = 0; lAt < acrLine.size(); ++lAt) {
        if (acrLine[lAt] == '\x1b') {
            const std::size_t lEnd = std::min(acrLine.find('m', lAt), acrLine.size() - 1);
            lCut.append(acrLine, lAt, lEnd - lAt + 1);
            lAt = lEnd;
            continue;
        }
        lShown += (acrLine[lAt] & 0xc0) != 0x80 ? 1 : 0;
        if (lShown <= aColumns) {
            lCut += acrLine[lAt];
        }
    }
    return lCut;
}

// The text with nothing in it that a terminal acts on but line ends, and what bold() makes.
std::string sShown(std::string_view aText) {
    std::string lShown;
    while (!aText.empty()) {
        std::size_t lEnd = aText.size();
        std::string_view lOurs;
        for (const std::string_view lSequence : {std::string_view(sBold), std::string_view(sPlain)}) {
            if (const std::size_t lAt = isColoured() ? aText.find(lSequence) : aText.npos; lAt < lEnd) {
                lEnd = lAt;
                lOurs = lSequence;
            }
        }
        lShown += toShownText(aText.substr(0, lEnd), true);
        lShown += lOurs;
        aText.remove_prefix(lEnd + lOurs.size());
    }
    return lShown;
}

void sPutAsItIs(const std::string& acrText) {
    for (std::size_t lAt = 0; lAt < acrText.size();) {
        pollfd lPoll{STDOUT_FILENO, POLLOUT, 0};
        if (poll(&lPoll, 1, sLookEvery) == 0) {
            if (sIsAskedToEnd()) {
                throw ZTCScopeFailure("interrupted: nobody reads the output, and the rest of it is lost");
            }
            continue;
        }
        // So much fits into a pipe that takes anything, without waiting.
        const ssize_t lWritten =
            write(STDOUT_FILENO, acrText.data() + lAt, std::min<std::size_t>(acrText.size() - lAt, PIPE_BUF));
        if (lWritten < 0 && errno != EINTR && errno != EAGAIN) {
            const std::string lText = std::string("cannot write the output: ") + strerror(errno);
            errno == EPIPE ? throw ZTCScopeClosed(lText) : throw ZTCScopeFailure(lText);
        }
        lAt += lWritten < 0 ? 0 : static_cast<std::size_t>(lWritten);
    }
}

}  // namespace

bool isTerminal() {
    return isatty(STDOUT_FILENO) == 1;
}

bool isColoured() {
    const char* const lpNoColour = getenv("NO_COLOR");
    const char* const lpKind = getenv("TERM");
    return isTerminal() && (lpNoColour == nullptr || *lpNoColour == '\0') && lpKind != nullptr &&
           strcmp(lpKind, "dumb") != 0;
}

ZTSTerminalSize getTerminalSize() {
    winsize lSize{};
    const bool lIsKnown =
        ioctl(STDOUT_FILENO, TIOCGWINSZ, &lSize) == 0 && lSize.ws_col > 0 && lSize.ws_row > 0;
    return lIsKnown ? ZTSTerminalSize{lSize.ws_col, lSize.ws_row} : sUsual;
}

void put(const std::string& acrText) {
    sPutAsItIs(sShown(acrText));
}

void complain(const std::string& acrText, const std::string& acrLines) {
    std::cerr << "vrx-scope: " << toShownText(acrText) << "\n" << toShownText(acrLines, true) << std::flush;
}

std::string plainLines(std::string aText) {
    for (const std::string_view lSequence : {std::string_view(sBold), std::string_view(sPlain)}) {
        for (std::size_t lAt = 0; isColoured() && (lAt = aText.find(lSequence, lAt)) != aText.npos;) {
            aText.erase(lAt, lSequence.size());
        }
    }
    return toShownText(aText, true);
}

std::string bold(const std::string& acrText) {
    return isColoured() ? sBold + acrText + sPlain : acrText;
}

ZTCScreen::ZTCScreen() {
    sPutAsItIs("\x1b[?1049h\x1b[?25l");
}

ZTCScreen::~ZTCScreen() {
    try {
        sPutAsItIs("\x1b[?25h\x1b[?1049l");
    } catch (const ZTCScopeFailure&) {
        return;  // the terminal has gone
    }
}

void ZTCScreen::show(const std::string& acrLines) {
    const ZTSTerminalSize lSize = getTerminalSize();
    std::istringstream lLines(sShown(acrLines));
    std::string lFrame = "\x1b[H";
    unsigned int lRow = 0;
    for (std::string lLine; lRow < lSize.mRows && std::getline(lLines, lLine); ++lRow) {
        lFrame += (lRow == 0 ? "" : "\r\n") + sCut(lLine, lSize.mColumns) + "\x1b[K";
    }
    sPutAsItIs(lFrame + "\x1b[J");
}
