// A system with nothing to do: one thread that waits on a conditional until the exit. For tests of what every
// system does at its start, on signals and at its end. What hangs is said in ZT_TEST_HANGS: "start", until
// there is a file "go" in the runtime directory, "thread", "destroy". As long as there is a file "inside", a
// thread is in foreign code since 1970.
#include <cstdlib>

#include "Log.h"
#include "System.h"
#include "SystemMain.h"

namespace {

constexpr char sFile[] = "TestSystem";

bool sHangs(const char* apWord) {
    const char* const lpWords = getenv("ZT_TEST_HANGS");
    return lpWords != nullptr && strstr(lpWords, apWord) != nullptr;
}

void sNap() {
    const timespec lTime{0, 1000000};
    nanosleep(&lTime, nullptr);
}

void* sWaitForExit(void* apBlock) {
    auto* const lpComponent = static_cast<ZTCThreadComponent**>(apBlock)[0];
    auto* const lpSystem = static_cast<ZTCSystem*>(static_cast<ZTCSystemInterface**>(apBlock)[1]);
    while (!lpComponent->isSetForExit()) {
        Log(ZTLL_Notice, sFile, "Waiting");
        flushLog();
        lpSystem->wait(0);
        while (sHangs("thread")) {
            sNap();
        }
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
        while (sHangs("start") && !hasFile("/go")) {
            mMark.store(true);
            sNap();
        }
        const unsigned int lId = mConditionals.append(makePointer<ZTCConditional>());
        mThreadComponents.append(ZTCPointer<ZTCThreadComponent>(
            new ZTCConditionWaitThreadComponent(sWaitForExit, ZTCString("waiter"), this, &lId, 1),
            ZTPST_Individual, ZTPMT_New));
    }

    void destroy() override {
        while (sHangs("destroy")) {
            sNap();
        }
        ZTCSystem::destroy();
    }

    ZTSForeignCall getLongestCall() const override {
        static_cast<void>(mMark.load());
        return hasFile("/inside") ? ZTSForeignCall{"function", {}} : ZTSForeignCall{};
    }

  private:
    std::atomic<bool> mMark{false};  // what a call that is marked does for who looks: all before it is seen

    bool hasFile(const char* apName) const {
        char lPath[4096];
        snprintf(lPath, sizeof lPath, "%s%s", getenv("ZT_VRX_SENSOR_DIR"), apName);
        return access(lPath, F_OK) == 0;
    }
};

}  // namespace

int main(int argc, char** argv) {
    setLogFilePath("zt-test.log");
    Log(ZTLL_Notice, sFile, "Starting");
    try {
        setSystemObject(new ZTCTestSystem);
        SystemMain(argc, argv);
    } catch (const ZTCException& lrException) {
        Log(ZTLL_Notice, sFile, "Ending: %s", lrException.what());
        return 0;
    }
    Log(ZTLL_Notice, sFile, "Ending in order");
    return 0;
}
