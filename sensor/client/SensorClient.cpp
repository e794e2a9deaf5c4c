#include "SensorClient.h"

#include <algorithm>
#include <random>
#include <thread>
#include <utility>

namespace {

// What a message has behind its header.
std::span<const std::uint8_t> sBodyOf(const ZTSensorBytes& acrMessage) {
    return std::span(acrMessage).subspan(ZTSSensorHeader::Size);
}

}  // namespace

ZTCSensorClient::ZTCSensorClient(ZTSSensorOptions aOptions)
    : mOptions(std::move(aOptions)),
      mClaim(mOptions.mDirectory, mOptions.mWait),
      // Answers to a client before this one wait in the pipe perhaps: they have other tags.
      mTag(std::random_device()()) {}

void ZTCSensorClient::startScope(std::uint32_t aCeiling) {
    order(encodeCommand(mTag, ZTSSCAC_StartScope, aCeiling));
}

void ZTCSensorClient::stop() {
    order(encodeCommand(mTag, ZTSSCAC_Stop));
}

void ZTCSensorClient::registerTargets(std::span<const ZTSSensorTarget> aTargets) {
    do {
        const auto lPart = aTargets.first(std::min(aTargets.size(), ZTSensorMaxTargets));
        order(encodeTargets(mTag, lPart));
        aTargets = aTargets.subspan(lPart.size());
    } while (!aTargets.empty());
}

void ZTCSensorClient::setCollectionPeriod(std::uint32_t aSeconds) {
    order(encodeCommand(mTag, ZTSSCAC_CollectionPeriod, aSeconds));
}

void ZTCSensorClient::shutDown() {
    order(encodeCommand(mTag, ZTSSCAC_ShutDown));
}

// Whatever fails but a refusal leaves the pipes in a state that nobody knows.
template <class Work>
auto ZTCSensorClient::guarded(const Work& acrWork) {
    try {
        return acrWork(Clock::now() + mOptions.mTimeout);
    } catch (const ZTCRefusedError&) {
        throw;
    } catch (...) {
        if (!mOpenFetch) {
            mPipes.reset();
        }
        throw;
    }
}

// A process that has the pipes without asking anybody is waited for as one is that has the directory.
void ZTCSensorClient::open(Clock::time_point aDeadline) {
    const auto lEnd = Clock::now() + mOptions.mWait;
    while (mPipes == nullptr) {
        try {
            mPipes = std::make_unique<ZTCSensorPipes>(mOptions.mDirectory, aDeadline);
        } catch (const ZTCPipesTakenError&) {
            if (Clock::now() >= lEnd) {
                throw;
            }
            std::this_thread::sleep_for(ZTCDirectoryClaim::LookEvery);
        }
    }
}

// Reads the answer to a fetch that has not come in time.
void ZTCSensorClient::finishFetch(Clock::time_point aDeadline) {
    if (!mOpenFetch) {
        return;
    }
    try {
        mLateFetch = mPipes->receive(*mOpenFetch, aDeadline);
    } catch (const ZTCTimedOutError&) {
        throw;
    } catch (...) {
        mOpenFetch.reset();
        ++mLostAnswers;
        throw;
    }
    mOpenFetch.reset();
}

ZTSensorBytes ZTCSensorClient::fetch() {
    return guarded([this](Clock::time_point aDeadline) {
        if (!mOpenFetch && mLateFetch.empty()) {
            open(aDeadline);
            mPipes->send(encodeCommand(mTag, ZTSSCAC_GetScopeData), aDeadline);
            mOpenFetch = mTag++;
        }
        finishFetch(aDeadline);
        return std::exchange(mLateFetch, {});
    });
}

void ZTCSensorClient::close() {
    mLostAnswers += mOpenFetch ? 1 : 0;
    mOpenFetch.reset();
    mPipes.reset();
}

void ZTCSensorClient::order(const ZTSensorBytes& acrCommand) {
    guarded([&](Clock::time_point aDeadline) {
        finishFetch(aDeadline);
        open(aDeadline);
        mPipes->send(acrCommand, aDeadline);
        decodeSuccess(sBodyOf(mPipes->receive(mTag++, aDeadline)));
    });
}
