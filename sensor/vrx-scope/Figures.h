// The figures of the agent, and of the library in it that has some, again and again.
#pragma once

#include <memory>
#include <optional>

#include "Commands.h"
#include "StatisticsText.h"

/// One file of figures, whoever it is of. One thread.
class ZTCFigureFile {
  public:
    /// Both names live as long as this does.
    ZTCFigureFile(const std::string& acrDirectory, const char* apName)
        : mrDirectory(acrDirectory), mpName(apName) {}

    bool isOpen() const { return mpFile != nullptr; }
    /// Throws ZTCNoAgentError, once it is closed, and what opening and reading throw.
    ZTSStatisticsTaken take();

  private:
    const std::string& mrDirectory;
    const char* const mpName;
    std::unique_ptr<ZTCAgentStatistics> mpFile;
    std::optional<ZTSStatisticsTaken> mBefore;
};

/// Prints both. One thread.
class ZTCFigures {
  public:
    explicit ZTCFigures(const ZTSScopeOptions& acrOptions);

    /// Throws what reading throws; without an agent the first time also ZTCNoAgentError.
    void show();

  private:
    std::optional<ZTSStatisticsTaken> takeOfLibrary(pid_t aProcess);

    const ZTSScopeOptions& mrOptions;
    ZTCFigureFile mAgent;
    ZTCFigureFile mLibrary;
    bool mHasShown = false;
};
