#include "Figures.h"

#include <utility>

#include "CommandParts.h"
#include "Json.h"
#include "ScopeWire.h"
#include "SensorError.h"
#include "Terminal.h"

ZTSStatisticsTaken ZTCFigureFile::take() {
    if (!isOpen() || mpFile->hasGone()) {
        mBefore.reset();
        mpFile.reset();
        mpFile = std::make_unique<ZTCAgentStatistics>(mrDirectory, mpName);
    }
    ZTSStatisticsTaken lTaken{
        std::chrono::steady_clock::now(), mpFile->getProcess(), mpFile->getStart(), mpFile->read(), {}, {}};
    const auto lBefore = std::exchange(mBefore, lTaken);
    if (lBefore) {
        lTaken.mSeconds = std::chrono::duration<double>(lTaken.mTime - lBefore->mTime).count();
        lTaken.mBefore = lBefore->mNow;
    }
    return lTaken;
}

ZTCFigures::ZTCFigures(const ZTSScopeOptions& acrOptions)
    : mrOptions(acrOptions),
      mAgent(directoryOf(mrOptions), ZTWireStatistics),
      mLibrary(mrOptions.mDirectory, ZTWireLibraryStatistics) {}

void ZTCFigures::show() {
    const bool lWasThere = mAgent.isOpen();
    try {
        const ZTSStatisticsTaken lTaken = mAgent.take();
        const auto lOfLibrary = takeOfLibrary(lTaken.mProcess);
        put(mrOptions.getForm() == ZTEScopeForm::Table
                ? (mHasShown ? "\n" : "") + statisticsText(lTaken, lOfLibrary)
                : statisticsJson(lTaken, lOfLibrary));
        mHasShown = true;
    } catch (const ZTCNoAgentError& lrError) {
        if (!mHasShown) {
            throw;
        }
        lWasThere ? void(refuse(lrError.what(), 0)) : void();
    }
}

std::optional<ZTSStatisticsTaken> ZTCFigures::takeOfLibrary(pid_t aProcess) {
    try {
        auto lTaken = mLibrary.take();
        return lTaken.mProcess == aProcess ? std::optional(std::move(lTaken)) : std::nullopt;
    } catch (const ZTCNoAgentError&) {
        return {};  // the agent has another library
    } catch (const ZTCSensorError& lrError) {
        mHasShown ? void() : void(refuse(lrError.what(), 0));
        return {};
    }
}
