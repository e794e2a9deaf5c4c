// The commands of vrx-scope, one function each.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "AnswerFile.h"
#include "HistoryOptions.h"
#include "IncidentOptions.h"
#include "RecordPrinter.h"

/// What the command line says. Times are in seconds.
struct ZTSScopeOptions {
    std::string mDirectory;
    double mTimeout = 10;
    double mWait = 0;
    bool mAsJson = false;
    bool mAsJsonLines = false;
    bool mInUtc = false;

    std::uint32_t mCeiling = 4096;
    std::vector<std::string> mTargets;
    std::string mFile;
    std::uint32_t mPeriod = 0;
    double mEvery = 0;
    double mFor = 0;
    bool mStarts = false;
    ZTSHistoryOptions mHistory;
    ZTSIncidentOptions mIncident;

    ZTEScopeForm getForm() const {
        return mAsJson ? ZTEScopeForm::Json : mAsJsonLines ? ZTEScopeForm::JsonLines : ZTEScopeForm::Table;
    }
};

/// The statuses that the program ends with, beside 0.
inline constexpr int ZTScopeFailed = 1;
inline constexpr int ZTScopeWrongUsage = 2;

// Each returns the program's status. They throw ZTCScopeUsage, ZTCScopeFailure, ZTCUnsavedAnswer and
// ZTCSensorError.
int runStart(const ZTSScopeOptions& acrOptions);
int runStop(const ZTSScopeOptions& acrOptions);
int runAddTargets(const ZTSScopeOptions& acrOptions);
int runAddLoadedTargets(const ZTSScopeOptions& acrOptions);
int runSetPeriod(const ZTSScopeOptions& acrOptions);
int runFetch(const ZTSScopeOptions& acrOptions);
int runShutDown(const ZTSScopeOptions& acrOptions);
int runShowStatus(const ZTSScopeOptions& acrOptions);
int runShowStatistics(const ZTSScopeOptions& acrOptions);
int runWatch(const ZTSScopeOptions& acrOptions);
int runRecord(const ZTSScopeOptions& acrOptions);
int runDecode(const ZTSScopeOptions& acrOptions);
int runReplay(const ZTSScopeOptions& acrOptions);
int runHistory(const ZTSScopeOptions& acrOptions);
int runPorts(const ZTSScopeOptions& acrOptions);
int runPaths(const ZTSScopeOptions& acrOptions);
int runChanges(const ZTSScopeOptions& acrOptions);
int runNote(const ZTSScopeOptions& acrOptions);
int runIncidents(const ZTSScopeOptions& acrOptions);
int runAcknowledge(const ZTSScopeOptions& acrOptions);
int runKeep(const ZTSScopeOptions& acrOptions);
int runAccept(const ZTSScopeOptions& acrOptions);
int runExport(const ZTSScopeOptions& acrOptions);

/// Prints what could not be saved, which the agent no longer has.
int rescue(const ZTCUnsavedAnswer& acrError, const ZTSScopeOptions& acrOptions);

/// One line on standard error. Returns the status.
int refuse(const std::string& acrText, int aStatus);
