#include "BenchProcess.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace {

// Of a file of lines "NAME: NUMBER ...".
double sFind(const std::filesystem::path& acrFile, std::string_view aName) {
    std::ifstream lFile(acrFile);
    double lNumber = 0;
    for (std::string lWord; lFile >> lWord;) {
        if (lWord == aName && lFile >> lNumber) {
            break;
        }
    }
    return lNumber;
}

}  // namespace

bool ztbench::isFull() {
    return getenv("ZT_BENCH") != nullptr;
}

std::string ztbench::makeFolder(const std::string& acrParent) {
    std::string lName = acrParent + "/zt-bench-XXXXXX";
    if (mkdtemp(lName.data()) == nullptr) {
        throw std::runtime_error("cannot make a directory in " + acrParent);
    }
    return lName;
}

ZTCBenchProcess::ZTCBenchProcess(const std::vector<std::string>& acrCommand,
                                 const std::vector<std::string>& acrEnvironment)
    : mProcess(fork()) {
    if (mProcess != 0) {
        return;
    }
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    for (const std::string& lrEntry : acrEnvironment) {
        putenv(const_cast<char*>(lrEntry.c_str()));
    }
    unsetenv("NOTIFY_SOCKET");
    const int lNowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(lNowhere, STDERR_FILENO);
    std::vector<char*> lWords;
    for (const std::string& lrWord : acrCommand) {
        lWords.push_back(const_cast<char*>(lrWord.c_str()));
    }
    lWords.push_back(nullptr);
    execv(lWords[0], lWords.data());
    _exit(1);
}

void ZTCBenchProcess::end() {
    if (mProcess > 0) {
        kill(mProcess, SIGTERM);
        waitpid(std::exchange(mProcess, -1), nullptr, 0);
    }
}

ZTSBenchCost ZTCBenchProcess::getCost(std::string_view aThreads) const {
    ZTSBenchCost lCost;
    const std::string lTasks = "/proc/" + std::to_string(mProcess) + "/task";
    for (const auto& lrTask : std::filesystem::directory_iterator(lTasks)) {
        std::string lName;
        std::ifstream(lrTask.path() / "comm") >> lName;
        if (!aThreads.empty() && aThreads.find(lName) == std::string_view::npos) {
            continue;
        }
        double lNanoseconds = 0;
        std::ifstream(lrTask.path() / "schedstat") >> lNanoseconds;
        lCost.mSeconds += lNanoseconds / 1e9;
        lCost.mSleeps += sFind(lrTask.path() / "status", "voluntary_ctxt_switches:");
    }
    return lCost;
}

std::pair<double, double> ZTCBenchProcess::getResident() const {
    const std::string lStatus = "/proc/" + std::to_string(mProcess) + "/status";
    return {sFind(lStatus, "VmRSS:") / 1024, sFind(lStatus, "VmHWM:") / 1024};
}
