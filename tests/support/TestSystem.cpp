// A system with nothing to do: one thread that waits on a conditional until the exit. For tests of what every
// system does at its start, on signals and at its end.
#include "Log.h"
#include "System.h"
#include "SystemMain.h"

namespace {

constexpr char sFile[] = "TestSystem";

void* sWaitForExit(void* apBlock) {
    auto* const lpComponent = static_cast<ZTCThreadComponent**>(apBlock)[0];
    auto* const lpInterface = static_cast<ZTCSystemInterface**>(apBlock)[1];
    auto* const lpSystem = static_cast<ZTCSystem*>(lpInterface);
    while (!lpComponent->isSetForExit()) {
        lpSystem->wait(0);
        Log(ZTLL_Information, sFile, "Woken");
    }
    return nullptr;
}

class ZTCTestSystem : public ZTCSystem {
  public:
    ZTCTestSystem() : ZTCSystem(ZTCString("zt-test-system")) {}

    void preInit() override {
        setRuntimeDirStr(getenv("ZT_VRX_SENSOR_DIR"));
        setPidFilePathStr(getRuntimeDirStr() + "/zt-test.pid");
        mInstanceManager = makePointer<ZTCProcessInstanceManager>(getPidFilePathStr());
        mVersion = makePointer<ZTCVersion>(1U, 2U, 3U, 4U);
    }

    void setCmdLineArgDescs() override {
        for (const char* const lpFlag : {"-h", "-v", "-s", "-S"}) {
            addArgDesc(1, lpFlag);
        }
        for (const char* const lpOption : {"-D", "-l", "-d", "-c", "-b"}) {
            addArgDesc(2, lpOption);
        }
    }

    void init() override {
        ZTCSystem::init();
        const unsigned int lId = mConditionals.append(makePointer<ZTCConditional>());
        mThreadComponents.append(ZTCPointer<ZTCThreadComponent>(
            new ZTCConditionWaitThreadComponent(sWaitForExit, ZTCString("waiter"), this, &lId, 1),
            ZTPST_Individual, ZTPMT_New));
    }
};

}  // namespace

int main(int argc, char** argv) {
    setLogFilePath("zt-test.log");
    Log(ZTLL_Notice, sFile, "Starting");
    try {
        auto* const lpSystem = new ZTCTestSystem;
        setSystemObject(lpSystem);
        SystemMain(argc, argv);
    } catch (const ZTCException& lrException) {
        Log(ZTLL_Notice, sFile, "Ending: %s", lrException.what());
        return 0;
    }
    Log(ZTLL_Notice, sFile, "Ending in order");
    return 0;
}
