#include "ThreadComponent.h"

#include "Log.h"

namespace {

constexpr char sFile[] = "ThreadComponent";
constexpr std::size_t sMaxThreadName = 15;  // the kernel's own limit

std::vector<unsigned int> sCopyOfIds(const unsigned int* apIds, unsigned int aCount) {
    return orNoMemory([&] { return std::vector<unsigned int>(apIds, apIds + aCount); });
}

}  // namespace

ZTCThreadComponent::ZTCThreadComponent(Procedure aProcedure, const ZTCString& acrName,
                                       ZTCSystemInterface* apSystem)
    : mProcedure(aProcedure), mName(acrName), mpSystem(apSystem), mBlock{this, apSystem} {}

ZTCThreadComponent::~ZTCThreadComponent() {
    finishGate();
    join();
}

void ZTCThreadComponent::finish() {
    setForExit();
    finishGate();
}

void ZTCThreadComponent::finishGate() {
    Gate lClosed = Gate::Closed;
    if (mGate.compare_exchange_strong(lClosed, Gate::Cancelled)) {
        mGate.notify_all();
    }
}

void ZTCThreadComponent::create(ZTCEvent& arEnded) {
    mpEnded = &arEnded;
    const int lErrno = pthread_create(&mThread, nullptr, threadMain, this);
    if (lErrno != 0) {
        throwErrno<ZTCOsException>("pthread_create", mName.get(), lErrno);
    }
    mIsCreated = true;
    char lName[sMaxThreadName + 1]{};
    memcpy(lName, mName.get(), strnlen(mName.get(), sMaxThreadName));
    pthread_setname_np(mThread, lName);
}

void ZTCThreadComponent::start() {
    Gate lClosed = Gate::Closed;
    if (mGate.compare_exchange_strong(lClosed, Gate::Open)) {
        mGate.notify_all();
    }
}

void ZTCThreadComponent::join() {
    if (mIsCreated) {
        pthread_join(mThread, nullptr);
        mIsCreated = false;
    }
}

void* ZTCThreadComponent::threadMain(void* apComponent) {
    auto* const lpComponent = static_cast<ZTCThreadComponent*>(apComponent);
    lpComponent->mGate.wait(Gate::Closed);
    if (lpComponent->mGate.load() == Gate::Open) {
        lpComponent->run();
    }
    lpComponent->mHasEnded.store(true);
    lpComponent->mpEnded->set();
    return nullptr;
}

void ZTCThreadComponent::run() {
    try {
        mProcedure(mBlock);
    } catch (const ZTCException& lrException) {
        // Procedures catch what they expect. What they do not must not take the process down unsaid.
        Log(ZTLL_Abnormal, sFile, "Thread %s ended abnormally: %s", mName.get(), lrException.what());
        mHasFailed.store(true);
    }
}

ZTCConditionWaitThreadComponent::ZTCConditionWaitThreadComponent(Procedure aProcedure,
                                                                 const ZTCString& acrName,
                                                                 ZTCSystemInterface* apSystem,
                                                                 const unsigned int* apConditionalIds,
                                                                 unsigned int aCount)
    : ZTCThreadComponent(aProcedure, acrName, apSystem),
      mConditionalIds(sCopyOfIds(apConditionalIds, aCount)) {}

void ZTCConditionWaitThreadComponent::finish() {
    ZTCThreadComponent::finish();
    for (const unsigned int lId : mConditionalIds) {
        getSystem()->signal(lId);
    }
}
