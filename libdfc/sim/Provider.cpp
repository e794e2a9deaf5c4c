// What the library exports, and what is there between init() and close().
#include <cstdio>
#include <cstdlib>

#include "Control.h"
#include "Player.h"

namespace {

using Duration = ZTCSimulator::Duration;

constexpr Duration sBetweenCallbacks = std::chrono::milliseconds(1);
constexpr Duration sDuringClose = std::chrono::milliseconds(100);

// Static, for it is asked for by callbacks that come during and after a close too.
std::atomic<uint32_t> sAdapters{0};

// Calls each of the registrations back again and again, whatever has become of them.
void sInsist(const ZTCSimulator::Registrations& acrRegistrations, Duration aFor) try {
    std::vector<ZTCSimEvent> lEvents;
    for (const auto& lrRegistration : acrRegistrations) {
        lEvents.emplace_back(*lrRegistration);
    }
    const auto lEnd = ZTCSimulator::Clock::now() + aFor;
    while (ZTCSimulator::Clock::now() < lEnd) {
        for (size_t lAt = 0; lAt < lEvents.size(); ++lAt) {
            lEvents[lAt].callBack(*acrRegistrations[lAt]);
        }
        std::this_thread::sleep_for(sBetweenCallbacks);
    }
} catch (const std::exception& lrException) {
    fprintf(stderr, "libdfc-sim: late callbacks end: %s\n", lrException.what());
}

class Session {
  public:
    Session() = default;
    ~Session() { stop(); }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    ZTCSimulator& simulator() { return mSimulator; }

    void start() {
        if (const char* const lpPath = getenv("ZT_LIBDFC_SIM")) {
            mStatements = readScenarioFile(lpPath);
        }
        for (auto lAt = mStatements.begin(); lAt != mStatements.end(); ++lAt) {
            if (lAt->mpVerb->mVerb == ZTESimVerb::Adapters) {
                mSimulator.setAdapters(*lAt);
                mStatements.erase(lAt);
                break;
            }
        }
        if (mSimulator.isFailing(ZTSFC_Init)) {
            throw ZTCSimError("libdfc-sim: init fails, as the scenario has it");
        }
        if (const char* const lpPath = getenv("ZT_LIBDFC_SIM_CONTROL")) {
            mControl.emplace(lpPath, [this](std::string_view aText) { return answer(aText); });
        }
        mFilePlayer = std::thread([this] { playFile(); });
    }

    void close() {
        if (mSimulator.getFault(ZTSF_CallbacksDuringClose)) {
            std::thread(sInsist, mSimulator.getOneOfEach(false), sDuringClose).join();
        }
        stop();
        std::this_thread::sleep_for(mSimulator.getFault(ZTSF_SlowClose).value_or(Duration(0)));
        if (const auto lFor = mSimulator.getFault(ZTSF_CallbacksAfterClose)) {
            std::thread(sInsist, mSimulator.getOneOfEach(true), *lFor).detach();
        }
    }

  private:
    void stop() {
        mSimulator.stop();
        mControl.reset();
        if (mFilePlayer.joinable()) {
            mFilePlayer.join();
        }
        mStorms.reset();
    }

    void playFile() {
        try {
            for (const ZTSSimStatement& lrStatement : mStatements) {
                if (mSimulator.isStopped()) {
                    return;
                }
                fputs(mPlayer.play(lrStatement).c_str(), stderr);
            }
        } catch (const std::exception& lrException) {
            fprintf(stderr, "libdfc-sim: %s\n", lrException.what());
        }
    }

    std::string answer(std::string_view aText) {
        try {
            std::string lAnswer;
            for (const ZTSSimStatement& lrStatement : readScenario(aText, "control")) {
                lAnswer += mSimulator.isStopped() ? "" : mPlayer.play(lrStatement);
                if (mSimulator.isStopped()) {
                    return "control: ended, as the library was closed\n";
                }
            }
            return lAnswer.empty() ? "ok\n" : lAnswer;
        } catch (const std::exception& lrException) {
            const std::string lWhat = lrException.what();
            return (lWhat.starts_with("control:") ? "" : "control: ") + lWhat + "\n";
        }
    }

    ZTCSimulator mSimulator{sAdapters};
    std::optional<ZTCSimStorms> mStorms{std::in_place, mSimulator};
    ZTCSimPlayer mPlayer{mSimulator, *mStorms};
    std::vector<ZTSSimStatement> mStatements;
    std::optional<ZTCSimControl> mControl;
    std::thread mFilePlayer;
};

// Never destroyed, for a process may end without close() while callbacks go on.
struct Current {
    std::mutex mMutex;
    std::shared_ptr<Session> mpSession;
};
Current& sGetCurrent() {
    alignas(Current) static unsigned char sRoom[sizeof(Current)];  // what is there without memory
    static Current& srCurrent = *new (sRoom) Current;
    return srCurrent;
}

std::shared_ptr<Session> sGetSession() {
    Current& lrCurrent = sGetCurrent();
    const std::lock_guard<std::mutex> lLock(lrCurrent.mMutex);
    return lrCurrent.mpSession;
}

void sSetSession(const std::shared_ptr<Session>& acrSession) {
    Current& lrCurrent = sGetCurrent();
    const std::lock_guard<std::mutex> lLock(lrCurrent.mMutex);
    lrCurrent.mpSession = acrSession;
}

// What the work returns, given the simulator of the open library; else the result for a call that fails.
template <class Result, class Work>
Result sWithSimulator(Result aFailure, const Work& acrWork) noexcept {
    try {
        const auto lSession = sGetSession();
        return lSession != nullptr ? acrWork(lSession->simulator()) : aFailure;
    } catch (const std::exception& lrException) {
        fprintf(stderr, "libdfc-sim: %s\n", lrException.what());
        return aFailure;
    }
}

int sInitLibrary() {
    try {
        if (sGetSession() != nullptr) {
            throw ZTCSimError("libdfc-sim: init while the library is open, expected close before it");
        }
        const auto lSession = std::make_shared<Session>();
        lSession->start();
        sSetSession(lSession);
        return 0;
    } catch (const std::exception& lrException) {
        fprintf(stderr, "%s\n", lrException.what());
        return 1;
    }
}

uint32_t sCountAdapters() {
    return sAdapters;
}

int sIsZtapiSupported() {
    return sWithSimulator(0, [](ZTCSimulator& arSimulator) { return arSimulator.isDriverOld() ? 0 : 1; });
}

int sGetAdapterInfo(uint32_t aBoard, HBA_wwn* apNode, HBA_wwn* apPort) {
    return sWithSimulator(1, [&](ZTCSimulator& arSimulator) {
        if (aBoard >= sAdapters || arSimulator.isFailing(ZTSFC_Info)) {
            return 1;
        }
        *apNode = makeSimName(arSimulator.getNode(aBoard));
        *apPort = makeSimName(arSimulator.getPort(aBoard));
        return 0;
    });
}

uint32_t sRegisterByCategory(uint32_t aBoard, HBA_wwn aPort, uint32_t aCategory, uint32_t aSubcategory,
                             void* apContext, uint32_t* apHandle, ZT_generic_callback apCallback) {
    return sWithSimulator(ZTCSimulator::BadArgument, [&](ZTCSimulator& arSimulator) {
        const auto lRegistration = std::make_shared<ZTSSimRegistration>();
        lRegistration->mId = {0, aCategory, aSubcategory};
        lRegistration->mBoard = aBoard;
        lRegistration->mPort = aPort;
        lRegistration->mpContext = apContext;
        lRegistration->mpGeneric = apCallback;
        const auto lOutcome = arSimulator.add(lRegistration);
        *apHandle = lOutcome.mHandle;
        return lOutcome.mStatus;
    });
}

uint32_t sUnregisterByCategory(uint32_t aBoard, HBA_wwn /*aPort*/, uint32_t aHandle) {
    return sWithSimulator(ZTCSimulator::BadArgument, [&](ZTCSimulator& arSimulator) {
        return arSimulator.remove(aBoard, aHandle, false);
    });
}

uint32_t sRegisterByMask(uint32_t aBoard, uint32_t aMask, uintptr_t /*aArgument*/, uint32_t /*aSize*/,
                         ZT_dfc_callback apCallback) {
    return sWithSimulator(0U, [&](ZTCSimulator& arSimulator) {
        const auto lRegistration = std::make_shared<ZTSSimRegistration>();
        lRegistration->mId.mMask = aMask;
        lRegistration->mBoard = aBoard;
        lRegistration->mpByMask = apCallback;
        lRegistration->mPort = makeSimName(arSimulator.getPort(aBoard));
        return arSimulator.add(lRegistration).mHandle;
    });
}

uint32_t sUnregisterByMask(uint32_t aBoard, uint32_t aHandle) {
    return sWithSimulator(ZTCSimulator::BadArgument, [&](ZTCSimulator& arSimulator) {
        return arSimulator.remove(aBoard, aHandle, true);
    });
}

void sCloseLibrary() {
    if (const auto lSession = sGetSession()) {
        try {
            lSession->close();
        } catch (const std::exception& lrException) {
            fprintf(stderr, "libdfc-sim: %s\n", lrException.what());
        }
        sSetSession(nullptr);
    }
}

constexpr ZT_libdfc_provider sProvider = {
    ZT_LIBDFC_ABI,   sizeof(ZT_libdfc_provider), sInitLibrary,          sCountAdapters,  sIsZtapiSupported,
    sGetAdapterInfo, sRegisterByCategory,        sUnregisterByCategory, sRegisterByMask, sUnregisterByMask,
    sCloseLibrary};

}  // namespace

const ZT_libdfc_provider* zt_libdfc_provider(uint32_t aAbi) {
    return aAbi == ZT_LIBDFC_ABI ? &sProvider : nullptr;
}
