#include "HostLook.h"

#include <algorithm>

#include "DisksLook.h"
#include "FilesLook.h"
#include "HostPorts.h"
#include "LookThread.h"
#include "LossBook.h"
#include "PortsLook.h"

namespace {

constexpr std::chrono::seconds sPatience(1);  // at the start and at the end

}  // namespace

// The names first: they say which fabrics the ports are on.
ZTCHostLook::ZTCHostLook(const std::string& acrRoot, const std::string& acrNames, ZTCSnBuffer& arBuffer,
                         ZTCServiceLog& arLog)
    : mpBook(std::make_shared<ZTCHostBook>(arBuffer, arLog)),
      mpFilesLook(std::make_shared<ZTCFilesLook>(acrRoot, mpBook)) {
    try {
        mpFilesLook->askForNames(acrNames);
        mpFiles = std::make_shared<ZTCLookThread>("vrx-sn-files", mpFilesLook);
        mpFiles->waitUntil([this] { return mpFilesLook->areNamesRead(); }, Clock::now() + sPatience);
        mpPorts =
            std::make_unique<ZTCLookThread>("vrx-sn-ports", std::make_shared<ZTCPortsLook>(acrRoot, mpBook));
        mpPorts->waitUntil([this] { return mpBook->hasSeenPorts(); }, Clock::now() + sPatience);
        const auto lAskForPaths = [lpLook = mpFilesLook, lpThread = mpFiles](std::uint64_t aQuestion) {
            lpLook->askForPaths(aQuestion);
            lpThread->wake();
        };
        mpDisks = std::make_unique<ZTCLookThread>(
            "vrx-sn-disks", std::make_shared<ZTCDisksLook>(acrRoot, mpBook, mpFilesLook, lAskForPaths));
    } catch (...) {
        mpBook->close();
        throw;
    }
}

ZTCHostLook::~ZTCHostLook() {
    settle();
    mpBook->close();
    const auto lUntil = Clock::now() + sPatience;
    for (ZTCLookThread* const lpThread : {mpFiles.get(), mpPorts.get(), mpDisks.get()}) {
        lpThread->waitForEnd(lUntil);
    }
}

void ZTCHostLook::settle() {
    for (ZTCLookThread* const lpThread : {mpFiles.get(), mpPorts.get(), mpDisks.get()}) {
        lpThread->end();
    }
    mpDisks->waitForEnd(Clock::now() + sPatience);
    mpBook->settle();
}

void ZTCHostLook::reload(const std::string& acrNames) {
    mpFilesLook->askForNames(acrNames);
    mpFiles->wake();
}

void ZTCHostLook::acceptPaths(const std::vector<std::string>& acrMaps) {
    mpBook->accept(acrMaps, ZTSMoment::now().mTime);
}

void ZTCHostLook::seeAgent(ZTCPortBook::Names aPorts) {
    std::sort(aPorts.begin(), aPorts.end());
    aPorts.erase(std::unique(aPorts.begin(), aPorts.end()), aPorts.end());
    aPorts.resize(std::min(aPorts.size(), ZTCHostPorts::MostLocal));
    mpBook->seeAgent(std::move(aPorts), ZTSMoment::now().mTime);
}

void ZTCHostLook::tellTrouble(Clock::time_point aNow) {
    for (ZTCLookThread* const lpThread : {mpFiles.get(), mpPorts.get(), mpDisks.get()}) {
        lpThread->watch(aNow);
    }
}
