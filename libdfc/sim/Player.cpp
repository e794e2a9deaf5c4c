#include "Player.h"

#include "StuckCallback.h"
#include "TellHost.h"

namespace {

constexpr uint64_t sNanosecondsASecond = 1'000'000'000;

}  // namespace

std::string ZTCSimPlayer::play(const ZTSSimStatement& acrStatement) {
    switch (acrStatement.mpVerb->mVerb) {
        case ZTESimVerb::Event:
        case ZTESimVerb::Raw:
            playEvent(acrStatement);
            break;
        case ZTESimVerb::Adapters:
            mrSimulator.setAdapters(acrStatement);
            break;
        case ZTESimVerb::Storm:
            playStorm(acrStatement);
            break;
        case ZTESimVerb::Wait:
            playWait(acrStatement);
            break;
        case ZTESimVerb::OnRegister:
        case ZTESimVerb::OnUnregister:
            mrSimulator.addRule(acrStatement);
            break;
        case ZTESimVerb::Fault:
            playFault(acrStatement);
            break;
        case ZTESimVerb::Report:
            return mrSimulator.report();
        case ZTESimVerb::Host:
            return tellMadeUpHost(acrStatement.mText);
        case ZTESimVerb::Count:
            break;
    }
    return {};
}

void ZTCSimPlayer::playEvent(const ZTSSimStatement& acrStatement) {
    const uint32_t lBoard = acrStatement.getWord("board");
    ZTSSimBurst lBurst;
    lBurst.mEvents.emplace_back(acrStatement, lBoard, mrSimulator.getPort(lBoard));
    lBurst.mTimes = acrStatement.getNumber("times");
    lBurst.mInterval = static_cast<double>(acrStatement.getNumber("every"));
    lBurst.play(mrSimulator, 0);
}

void ZTCSimPlayer::playStorm(const ZTSSimStatement& acrStatement) {
    const uint32_t lFirst = acrStatement.getWord("board");
    const uint64_t lRate = acrStatement.getNumber("rate");
    ZTSSimBurst lBurst;
    for (uint32_t lBoard = 0; lBoard < acrStatement.getWord("boards", 1); ++lBoard) {
        lBurst.mEvents.emplace_back(acrStatement, lFirst + lBoard, mrSimulator.getPort(lFirst + lBoard));
    }
    lBurst.mTimes = acrStatement.getNumber("times", UINT64_MAX);
    lBurst.mInterval = lRate < sNanosecondsASecond
                           ? static_cast<double>(sNanosecondsASecond) / static_cast<double>(lRate)
                           : 0;
    if (acrStatement.has("for")) {
        lBurst.mFor = ZTCSimulator::Duration(acrStatement.getNumber("for"));
    }
    lBurst.mThreads = acrStatement.getWord("threads");
    mrStorms.start(std::move(lBurst));
}

void ZTCSimPlayer::playWait(const ZTSSimStatement& acrStatement) {
    if (acrStatement.has("storms")) {
        mrSimulator.waitForStorms();
    } else if (acrStatement.has("registrations")) {
        mrSimulator.waitForRegistrations(acrStatement.getNumber("registrations"));
    } else {
        mrSimulator.sleepUntil(ZTCSimulator::Clock::now() +
                               ZTCSimulator::Duration(acrStatement.getNumber("for")));
    }
}

void ZTCSimPlayer::playFault(const ZTSSimStatement& acrStatement) {
    const auto lFault = static_cast<ZTESimFault>(acrStatement.getNumber("name"));
    if (lFault != ZTSF_StuckCallback) {
        mrSimulator.setFault(lFault, ZTCSimulator::Duration(acrStatement.getNumber("for")));
        return;
    }
    const auto lRegistration = mrSimulator.findByMask(ZT_DFC_RSCN);
    if (lRegistration == nullptr) {
        throw ZTCSimError("fault stuck-callback without a registration for rscn, expected one before it");
    }
    startStuckCallback(lRegistration);
}
