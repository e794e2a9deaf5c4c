// vrx-sim: checks scenarios, sends their lines to a running library and shows the language.
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <iostream>

#include "Scenario.h"

namespace {

constexpr int sWrongUsage = 2;
constexpr int sLookEvery = 200;  // milliseconds, for whether the library is still there
constexpr auto sLongest = std::chrono::seconds(600);
constexpr size_t sMaxDatagram = 256 * 1024;

using Arguments = std::vector<std::string>;

int sRefuseUsage(const std::string& acrText) {
    std::cerr << "vrx-sim: " << acrText << " (vrx-sim -h shows the usage)\n";
    return sWrongUsage;
}

int sCheck(const Arguments& acrFiles) {
    if (acrFiles.empty()) {
        return sRefuseUsage("check without a FILE");
    }
    int lStatus = 0;
    for (const std::string& lrFile : acrFiles) {
        try {
            const size_t lCount = readScenarioFile(lrFile).size();
            std::cout << lrFile << ": ok, " << lCount << " statement" << (lCount == 1 ? "\n" : "s\n");
        } catch (const ZTCSimError& lrError) {
            std::cerr << lrError.what() << "\n";
            lStatus = 1;
        }
    }
    return lStatus;
}

class Client {
  public:
    explicit Client(const std::string& acrPath) : mSocket(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        mAddress.sun_family = AF_UNIX;
        strncpy(mAddress.sun_path, acrPath.c_str(), sizeof mAddress.sun_path - 1);
        const sockaddr_un lAny{AF_UNIX, ""};  // the system chooses an address, to be answered at
        mIsConnected = bind(mSocket, reinterpret_cast<const sockaddr*>(&lAny), sizeof lAny.sun_family) == 0 &&
                       reach(mSocket);
    }
    ~Client() { close(mSocket); }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    /// Prints the answer. 1 if it is an error, -1 if there is none.
    int ask(const std::string& acrLine) const {
        if (!mIsConnected || send(mSocket, acrLine.data(), acrLine.size(), MSG_NOSIGNAL) < 0) {
            return -1;
        }
        const auto lEnd = std::chrono::steady_clock::now() + sLongest;
        pollfd lPoll{mSocket, POLLIN, 0};
        while (poll(&lPoll, 1, sLookEvery) == 0) {
            if (std::chrono::steady_clock::now() > lEnd || !isThere()) {
                return -1;
            }
        }
        std::string lAnswer(sMaxDatagram, '\0');
        const ssize_t lRead = recv(mSocket, lAnswer.data(), lAnswer.size(), MSG_DONTWAIT);
        if (lRead < 0) {
            return -1;
        }
        lAnswer.resize(static_cast<size_t>(lRead));
        const bool lIsError = lAnswer.starts_with("control:");
        (lIsError ? std::cerr : std::cout) << toShownSimText(lAnswer) << std::flush;
        return lIsError ? 1 : 0;
    }

  private:
    bool reach(int aSocket) const {
        return connect(aSocket, reinterpret_cast<const sockaddr*>(&mAddress), sizeof mAddress) == 0;
    }

    bool isThere() const {
        const int lProbe = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        const bool lIsThere = reach(lProbe);
        close(lProbe);
        return lIsThere;
    }

    const int mSocket;
    sockaddr_un mAddress{};
    bool mIsConnected = false;
};

int sSendLines(const Arguments& acrArguments) {
    const char* const lpDefault = getenv("ZT_LIBDFC_SIM_CONTROL");
    std::string lPath = lpDefault != nullptr ? lpDefault : "";
    auto lLine = acrArguments.begin();
    if (lLine != acrArguments.end() && *lLine == "-s") {
        if (++lLine == acrArguments.end()) {
            return sRefuseUsage("-s without a SOCKET");
        }
        lPath = *lLine++;
    }
    if (lPath.empty() || lPath.size() >= sizeof(sockaddr_un::sun_path)) {
        return sRefuseUsage(lPath.empty() ? "no SOCKET: neither -s nor ZT_LIBDFC_SIM_CONTROL"
                                          : "the SOCKET's path is too long");
    }
    const Client lClient(lPath);
    int lStatus = 0;
    const auto lIsAnswered = [&](const std::string& acrLine) {
        const int lAnswer = lClient.ask(acrLine);
        lStatus = lAnswer != 0 ? 1 : lStatus;
        return lAnswer >= 0;
    };
    bool lGoesOn = true;
    if (lLine == acrArguments.end()) {
        for (std::string lRead; lGoesOn && std::getline(std::cin, lRead);) {
            lGoesOn = lIsAnswered(lRead);
        }
    }
    for (; lGoesOn && lLine != acrArguments.end(); ++lLine) {
        lGoesOn = lIsAnswered(*lLine);
    }
    if (!lGoesOn) {
        std::cerr << "vrx-sim: " << lPath << ": nobody listens there\n";
    }
    return lStatus;
}

const char* sFormOf(const ZTSSimKey& acrKey) {
    const char* const lpAlone = acrKey.mValue == ZTESimValue::Flag ? "" : ", or with =";
    return acrKey.mForm == ZTESimForm::Pair   ? "="
           : acrKey.mForm == ZTESimForm::Word ? "=, or without it"
                                              : lpAlone;
}

void sShowKeys(std::span<const ZTSSimKey> aKeys) {
    for (const ZTSSimKey& lrKey : aKeys) {
        std::cout << "      " << lrKey.mpName << sFormOf(lrKey) << "  "
                  << (lrKey.mValue == ZTESimValue::Kind ? "one of the kinds below" : describeSimValue(lrKey))
                  << (lrKey.mIsRequired ? "; required\n" : "\n");
    }
}

template <class Row>
void sShowRow(const Row& acrRow, std::span<const ZTSSimKey> aKeys) {
    std::cout << "  " << acrRow.mpName << ": " << acrRow.mpHelp << "\n      example: " << acrRow.mpExample
              << "\n";
    sShowKeys(aKeys);
}

int sShowLanguage(const Arguments& acrArguments) {
    if (!acrArguments.empty()) {
        return sRefuseUsage("language takes nothing");
    }
    std::cout << "A line is a verb, then key=value pairs and bare words; # begins a comment.\n\nverbs\n";
    for (const ZTSSimVerb& lrVerb : getSimVerbs()) {
        sShowRow(lrVerb, lrVerb.mKeys);
    }
    std::cout << "\nkinds of events\n";
    for (const ZTSSimKind& lrKind : getSimKinds()) {
        sShowRow(lrKind, lrKind.mFields);
    }
    return 0;
}

int sShowUsage(const Arguments& /*acrArguments*/) {
    std::cout
        << "vrx-sim check FILE...               checks scenarios\n"
           "vrx-sim send [-s SOCKET] [LINE...]  has a running library play each line, else those of the\n"
           "                                    standard input, and prints its answers\n"
           "                                    (SOCKET: else ZT_LIBDFC_SIM_CONTROL)\n"
           "vrx-sim language                    lists what a line may be\n"
           "vrx-sim -h                          shows this\n";
    return 0;
}

struct CommandRow {
    const char* mpName;
    int (*mRun)(const Arguments&);
};
constexpr CommandRow sCommands[] = {
    {"check", sCheck}, {"send", sSendLines}, {"language", sShowLanguage}, {"-h", sShowUsage}};

}  // namespace

int main(int argc, char** argv) {
    const Arguments lArguments(argv + std::min(argc, 2), argv + argc);
    for (const CommandRow& lrCommand : sCommands) {
        if (argc > 1 && strcmp(argv[1], lrCommand.mpName) == 0) {
            return lrCommand.mRun(lArguments);
        }
    }
    return sRefuseUsage(argc > 1 ? std::string("unknown command '") + argv[1] + "'" : "no command");
}
