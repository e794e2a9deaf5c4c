// The entry point. Every path through it ends with status 0: who needs to know why the agent ended reads
// the log.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <new>

#include "Assert.h"
#include "Daemon.h"
#include "Log.h"
#include "ScopeAgentSystem.h"
#include "SystemMain.h"

namespace {
constexpr char sFile[] = "ScopeAgentMain";
constinit const char* spAgentName = "vrx-sca";
}  // namespace

namespace {

// Where there is no memory from the first byte on, not even an exception can be thrown that says so.
void sExpectMemory() {
    void* const volatile lpAny = malloc(1);
    if (lpAny == nullptr) {
        fprintf(stderr, "%s: Out of Memory\n", spAgentName);
        _exit(0);
    }
    free(lpAny);
}

void sMakeSystem() {
    try {
        setLogFilePath("vrx-sca.log");
        const ZTCString lName(spAgentName);
        setSystemObject(new (std::nothrow) ZTCScopeAgentSystem(lName));
    } catch (const ZTCException& lrException) {
        tellFailure(spAgentName, lrException);
        throw;
    }
}

}  // namespace

int main(int argc, char** argv) {
    OsOpenStandardDescriptors();
    sExpectMemory();
    {
        const ZTCTraceScope lTrace(sFile);
        try {
            Log(ZTLL_Notice, sFile, "Starting the ScopeAgent");
            sMakeSystem();
            SystemMain(argc, argv);
            Log(ZTLL_Highest, sFile, "ScopeAgent System exiting");
        } catch (const ZTCExitConditionEx&) {
            Log(ZTLL_Information, sFile, "Exit condition");
        } catch (const ZTCException& lrException) {
            Log(ZTLL_Information, sFile, "Failed with error - %s, exiting abruptly", lrException.what());
        }
    }
    leaveProcess(0);
}
