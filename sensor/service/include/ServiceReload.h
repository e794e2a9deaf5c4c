// Reads the options anew, in a thread of its own: the configuration may lie on a disk that stands still.
#pragma once

#include <sys/eventfd.h>

#include <cerrno>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <system_error>

#include "SensorFiles.h"
#include "ServiceThread.h"

/// Used by one thread. A read that is kept holds up nobody, not even the end: it is left to itself then.
template <class Value>
class ZTCServiceReload {
  public:
    /// aRead reads all there is to read; it is called in the thread, whose name that is. Throws
    /// std::system_error.
    template <std::size_t Size>
    ZTCServiceReload(const char (&aprName)[Size], std::function<Value()> aRead)
        : mpShared(std::make_shared<Shared>(std::move(aRead))), mStart([&aprName, lpShared = mpShared] {
              startServiceThread(aprName, [lpShared] { lpShared->run(); }).detach();
          }) {}

    /// What is asked for while one is under way is read behind it, once. Throws std::system_error.
    void begin() {
        const std::lock_guard lLock(mpShared->mLock);
        mpShared->mIsWanted = true;
        if (!mpShared->mIsRunning) {
            mStart();
            mpShared->mIsRunning = true;
        }
    }
    /// Is readable when there is something to take.
    int getDescriptor() const { return mpShared->mReady.get(); }
    /// Throws what the reading threw.
    Value take() {
        const std::lock_guard lLock(mpShared->mLock);
        eventfd_t lCount = 0;
        eventfd_read(mpShared->mReady.get(), &lCount);
        if (mpShared->mpError) {
            std::rethrow_exception(mpShared->mpError);
        }
        return mpShared->mValue.value();
    }

  private:
    // Belongs to the thread as well, which may outlive the rest.
    class Shared {
      public:
        explicit Shared(std::function<Value()> aRead)
            : mRead(std::move(aRead)), mReady(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
            if (!mReady.isOpen()) {
                throw std::system_error(errno, std::generic_category(), "eventfd");
            }
        }

        void run() {
            std::unique_lock lLock(mLock);
            for (; mIsWanted; eventfd_write(mReady.get(), 1)) {
                mIsWanted = false;
                lLock.unlock();
                std::optional<Value> lValue;
                std::exception_ptr lpError;
                try {
                    lValue = mRead();
                } catch (...) {
                    lpError = std::current_exception();
                }
                lLock.lock();
                mValue = std::move(lValue);
                mpError = lpError;
            }
            mIsRunning = false;
        }

        const std::function<Value()> mRead;
        const ZTCSensorDescriptor mReady;
        std::mutex mLock;
        bool mIsWanted = false;
        bool mIsRunning = false;
        std::optional<Value> mValue;
        std::exception_ptr mpError;
    };

    const std::shared_ptr<Shared> mpShared;
    const std::function<void()> mStart;
};
