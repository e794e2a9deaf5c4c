#include "SystemMain.h"

#include "SafeFile.h"
#include "StandardError.h"
#include "System.h"

namespace {

constexpr char sFile[] = "SystemMain";
constexpr char sNull[] = "/dev/null";

constinit ZTCSystem* spSystem = nullptr;

// A log file without a directory in its name lies in the runtime directory.
void sNameLog(const ZTCString& acrRuntimeDir) {
    const ZTCString lName(getLogFilePath());
    if (strchr(lName.get(), '/') == nullptr) {
        setLogFilePath((acrRuntimeDir + "/" + lName.get()).get());
    }
}

// Behind the daemon's fork, for the log's writer is a thread. Whatever the file's disk does, the start goes
// on.
void sOpenLog(const ZTCSystem& acrSystem) {
    setLogEcho(true);
    if (!openLog()) {
        Log(ZTLL_Warning, sFile, "The log file does not open: going on without it until it does");
        tellOnStandardError(acrSystem.getName().get(),
                            "the log file does not open: going on without it until it does");
    }
}

void sStart(ZTCSystem& arSystem, int argc, char** argv) {
    arSystem.preInit();
    arSystem.processCommandLine(argc, argv);
    const char* const lpRuntimeDir = arSystem.getRuntimeDirStr().get();
    OsCheckDirectory(lpRuntimeDir);
    sNameLog(arSystem.getRuntimeDirStr());
    if (arSystem.isStopWanted()) {
        arSystem.stopRunningInstanceAndExit();
    }
    if (arSystem.isDaemonWanted()) {
        // A runtime directory without a leading slash means the one below where the process was started.
        arSystem.systemDaemonize(lpRuntimeDir[0] == '/' ? "/" : ".", sNull, sNull, sNull);
    }
    arSystem.startWatch();
    sOpenLog(arSystem);
    arSystem.processCommandLineArguments();
    arSystem.markAsRunning();
    arSystem.init();
    if (arSystem.isEnding()) {
        return;  // there are no threads to wait for: the end follows
    }
    arSystem.createThreads();
    arSystem.startThreads();
    arSystem.postThreadsInit();
    arSystem.letExit(true);
    arSystem.reportReady();
}

void sEnd(ZTCSystem& arSystem) {
    arSystem.letExit(false);
    arSystem.beginEnd();
    arSystem.createShutDownEvent();
    arSystem.destroyThreads();
    try {
        arSystem.destroy();
    } catch (const ZTCException& lrException) {
        Log(ZTLL_Error, sFile, "%s", lrException.what());
        arSystem.postDestroy();
        throw;
    }
    arSystem.postDestroy();
}

// Takes down what a start that failed had set up. What fails here has been told by the first failure.
void sAbandon(ZTCSystem& arSystem) {
    const char* const lpName = __func__;  // inside the lambda it would be the lambda's
    const auto lTry = [=](auto&& arStep) {
        try {
            arStep();
        } catch (const ZTCException& lrException) {
            LogBy(lpName, ZTLL_Warning, sFile, "Going on with the end: %s", lrException.what());
        }
    };
    lTry([&] { arSystem.letExit(false); });
    lTry([&] { arSystem.makeThreadsToExit(); });
    lTry([&] { arSystem.waitForThreads(); });
    lTry([&] { arSystem.destroyThreads(); });
    lTry([&] { arSystem.destroy(); });
    lTry([&] { arSystem.postDestroy(); });
}

}  // namespace

void tellFailure(const char* apName, const ZTCException& acrException) {
    unsigned int lLogCode = 0;
    getLogCode(lLogCode);
    Log(ZTLL_Error, "SystemMain", "%s", acrException.what());
    // Shown by the log, if it can show anything.
    if ((lLogCode & ZTLL_Error.mBit) == 0 || !flushLog()) {
        tellOnStandardError(apName, acrException.what());
    }
}

void setSystemObject(ZTCSystem* apSystem) {
    spSystem = apSystem;
}

ZTCSystem* getSystemObject() {
    return spSystem;
}

int SystemMain(int argc, char** argv) {
    const ZTCTraceScope lTrace(sFile);
    ZT_ASSERT(0 != spSystem, __LINE__, sFile);
    try {
        orNoMemory([&] { sStart(*spSystem, argc, argv); });
        spSystem->waitForThreads();
    } catch (const ZTCException& lrException) {
        tellFailure(spSystem->getName().get(), lrException);
        sAbandon(*spSystem);
        spSystem->reportEnd();
        throw;
    }
    sEnd(*spSystem);
    spSystem->reportEnd();
    return 0;
}
