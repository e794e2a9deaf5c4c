#include "Multipathd.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <system_error>

#include "HostDescriptor.h"

namespace {

using Clock = std::chrono::steady_clock;

// The request goes with its 0, behind its length with it, and so does the answer.
constexpr char sRequest[] = "show paths raw format \"%d %m %t\"";
constexpr std::size_t sLongestAnswer = std::size_t{4} << 20;
constexpr std::size_t sChunk = std::size_t{16} << 10;
constexpr uid_t sRoot = 0;

// An @ is a 0: an abstract one, which whoever comes first can have.
constexpr const char* sAbstract = "@/org/kernel/linux/storage/multipathd";
constexpr const char* sFile = "/run/multipathd.socket";  // newer ones have both

class Conversation {
  public:
    Conversation(std::chrono::milliseconds aTime, std::string& arWhyNot)
        : mTime(aTime), mEnd(Clock::now() + aTime), mrWhyNot(arWhyNot) {}

    bool connectTo(const std::string& acrPath, bool& arIsThere);
    bool isRoots();
    bool ask();
    bool readAnswer(std::string& arText);

  private:
    bool fail(std::string aWhy) {
        mrWhyNot = std::move(aWhy);
        return false;
    }
    bool failFor(const char* apWhat, int aError) {
        return fail(apWhat + (": " + std::system_category().message(aError)));
    }
    std::chrono::milliseconds getLeft() const {
        return std::max(std::chrono::ceil<std::chrono::milliseconds>(mEnd - Clock::now()),
                        std::chrono::milliseconds(0));
    }
    bool readMore(std::string& arBytes, std::size_t aMost);

    const std::chrono::milliseconds mTime;
    const Clock::time_point mEnd;
    std::string& mrWhyNot;
    ZTCHostDescriptor mSocket{socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)};
};

// Only this one waits in the kernel, for so long at most: for a place in the queue of those who ask.
bool Conversation::connectTo(const std::string& acrPath, bool& arIsThere) {
    sockaddr_un lAddress{};
    lAddress.sun_family = AF_UNIX;
    if (acrPath.size() >= sizeof lAddress.sun_path) {
        return failFor("it cannot be reached", ENAMETOOLONG);
    }
    memcpy(lAddress.sun_path, acrPath.data(), acrPath.size());
    lAddress.sun_path[0] = acrPath[0] == '@' ? '\0' : acrPath[0];
    const auto lSize = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + acrPath.size());
    const auto lLeft = std::max(getLeft(), std::chrono::milliseconds(1)).count();
    const timeval lTime{lLeft / 1000, lLeft % 1000 * 1000};
    if (!mSocket.isOpen() || setsockopt(mSocket.get(), SOL_SOCKET, SO_SNDTIMEO, &lTime, sizeof lTime) != 0 ||
        connect(mSocket.get(), reinterpret_cast<const sockaddr*>(&lAddress), lSize) != 0) {
        arIsThere = errno != ENOENT && errno != ECONNREFUSED;
        return arIsThere ? failFor("it cannot be reached", errno) : fail("it does not run");
    }
    return true;
}

bool Conversation::isRoots() {
    ucred lPeer{};
    socklen_t lSize = sizeof lPeer;
    return (getsockopt(mSocket.get(), SOL_SOCKET, SO_PEERCRED, &lPeer, &lSize) == 0 && lPeer.uid == sRoot) ||
           fail("who has its socket is not root");
}

bool Conversation::ask() {
    const std::uint64_t lLength = sizeof sRequest;
    std::string lBytes(sizeof lLength, '\0');
    memcpy(lBytes.data(), &lLength, sizeof lLength);
    lBytes.append(sRequest, sizeof sRequest);
    const ssize_t lSent = send(mSocket.get(), lBytes.data(), lBytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    return lSent == static_cast<ssize_t>(lBytes.size()) || fail("it takes no request");
}

bool Conversation::readMore(std::string& arBytes, std::size_t aMost) {
    const std::size_t lHeld = arBytes.size();
    for (;;) {
        pollfd lPoll{mSocket.get(), POLLIN, 0};
        const auto lLeft = getLeft();
        if (lLeft.count() == 0 || poll(&lPoll, 1, static_cast<int>(lLeft.count())) == 0) {
            return fail("it has not answered within " + std::to_string(mTime.count()) + " ms");
        }
        arBytes.resize(lHeld + aMost);
        const ssize_t lRead = recv(mSocket.get(), arBytes.data() + lHeld, aMost, MSG_DONTWAIT);
        const int lError = lRead < 0 ? errno : 0;
        arBytes.resize(lHeld + static_cast<std::size_t>(std::max<ssize_t>(lRead, 0)));
        if (lRead > 0) {
            return true;
        }
        if (lRead == 0) {
            return fail("it ended before its answer did");
        }
        if (lError != EAGAIN && lError != EINTR) {
            return failFor("its answer cannot be read", lError);
        }
    }
}

bool Conversation::readAnswer(std::string& arText) {
    std::uint64_t lLength = 0;
    while (arText.size() < sizeof lLength) {
        if (!readMore(arText, sizeof lLength - arText.size())) {
            return false;
        }
    }
    memcpy(&lLength, arText.data(), sizeof lLength);
    arText.clear();
    if (lLength == 0 || lLength > sLongestAnswer) {
        return fail("its answer is said to have " + std::to_string(lLength) + " bytes");
    }
    while (arText.size() < lLength) {
        if (!readMore(arText, std::min<std::size_t>(sChunk, lLength - arText.size()))) {
            return false;
        }
    }
    arText.resize(std::min(arText.find('\0'), arText.size()));
    return true;
}

std::string_view sTakeLine(std::string_view& arText) {
    const std::string_view lLine = arText.substr(0, arText.find('\n'));
    arText.remove_prefix(std::min(lLine.size() + 1, arText.size()));
    return lLine.substr(0, lLine.find_last_not_of(" \r") + 1);
}

// What stands between a line's first and last word is the map's name, which may have blanks. Nothing: it is
// no such line.
enum class State : unsigned char { Active, Failed, Undefined };
std::optional<State> sReadLine(std::string_view aLine, ZTSMultipathdPath& arPath) {
    const std::size_t lFirst = aLine.find(' ');
    const std::size_t lLast = aLine.rfind(' ');
    if (lFirst == 0 || lFirst == lLast) {
        return {};
    }
    arPath.mDisk = aLine.substr(0, lFirst);
    arPath.mMap = aLine.substr(lFirst + 1, lLast - lFirst - 1);
    static constexpr std::string_view sStates[] = {"active", "failed", "undef"};
    const auto* const lpState = std::find(std::begin(sStates), std::end(sStates), aLine.substr(lLast + 1));
    arPath.mIsUsable = lpState == std::begin(sStates);
    return lpState != std::end(sStates) ? std::optional(static_cast<State>(lpState - sStates)) : std::nullopt;
}

bool sConnect(Conversation& arConversation, const std::string& acrRoot) {
    bool lIsThere = false;
    if (acrRoot.find_first_not_of('/') != std::string::npos) {
        return arConversation.connectTo(acrRoot + sFile, lIsThere);
    }
    return (arConversation.connectTo(sAbstract, lIsThere) ||
            (!lIsThere && arConversation.connectTo(sFile, lIsThere))) &&
           arConversation.isRoots();
}

}  // namespace

std::optional<std::vector<ZTSMultipathdPath>> askMultipathd(const std::string& acrRoot,
                                                            std::chrono::milliseconds aTime,
                                                            std::string& arWhyNot) {
    Conversation lConversation(aTime, arWhyNot);
    std::string lText;
    if (!sConnect(lConversation, acrRoot) || !lConversation.ask() || !lConversation.readAnswer(lText)) {
        return {};
    }
    // Instead of a list it may say "fail" or "timeout".
    std::string_view lRest(lText);
    ZTSMultipathdPath lPath;
    if (!lText.empty() && !sReadLine(sTakeLine(lRest), lPath)) {
        arWhyNot = "its answer is no list of paths";
        return {};
    }
    return readMultipathdPaths(lText);
}

std::vector<ZTSMultipathdPath> readMultipathdPaths(std::string_view aText) {
    std::vector<ZTSMultipathdPath> lPaths;
    while (!aText.empty()) {
        ZTSMultipathdPath lPath;
        const auto lState = sReadLine(sTakeLine(aText), lPath);
        if (lState && *lState != State::Undefined) {  // one that is in no map
            lPaths.push_back(std::move(lPath));
        }
    }
    return lPaths;
}
