#include "SnReload.h"

#include <sys/eventfd.h>

#include <cerrno>
#include <exception>
#include <mutex>
#include <optional>
#include <system_error>

#include "SensorFiles.h"
#include "ServiceThread.h"

/// Belongs to the thread as well, which may outlive the rest.
class ZTCSnReload::Shared {
  public:
    explicit Shared(const std::vector<std::string>& acrWords)
        : mWords(acrWords), mReady(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
        if (!mReady.isOpen()) {
            throw std::system_error(errno, std::generic_category(), "eventfd");
        }
    }

    void run() {
        std::unique_lock lLock(mLock);
        for (; mIsWanted; eventfd_write(mReady.get(), 1)) {
            mIsWanted = false;
            lLock.unlock();
            std::optional<ZTSSnOptions> lOptions;
            std::exception_ptr lpError;
            try {
                lOptions = readSnOptions(mWords);
            } catch (...) {
                lpError = std::current_exception();
            }
            lLock.lock();
            mOptions = std::move(lOptions);
            mpError = lpError;
        }
        mIsRunning = false;
    }

    const std::vector<std::string> mWords;
    const ZTCSensorDescriptor mReady;
    std::mutex mLock;
    bool mIsWanted = false;
    bool mIsRunning = false;
    std::optional<ZTSSnOptions> mOptions;
    std::exception_ptr mpError;
};

ZTCSnReload::ZTCSnReload(const std::vector<std::string>& acrWords)
    : mpShared(std::make_shared<Shared>(acrWords)) {}

ZTCSnReload::~ZTCSnReload() = default;

void ZTCSnReload::begin() {
    const std::lock_guard lLock(mpShared->mLock);
    mpShared->mIsWanted = true;
    if (!mpShared->mIsRunning) {
        startServiceThread("vrx-sn-options", [lpShared = mpShared] { lpShared->run(); }).detach();
        mpShared->mIsRunning = true;
    }
}

int ZTCSnReload::getDescriptor() const {
    return mpShared->mReady.get();
}

ZTSSnOptions ZTCSnReload::take() {
    const std::lock_guard lLock(mpShared->mLock);
    eventfd_t lCount = 0;
    eventfd_read(mpShared->mReady.get(), &lCount);
    if (mpShared->mpError) {
        std::rethrow_exception(mpShared->mpError);
    }
    return mpShared->mOptions.value();
}
