#include "SensorClient.h"

#include <algorithm>
#include <random>

namespace {

// What a message has behind its header.
std::span<const std::uint8_t> bodyOf(const ZTSensorBytes& acrMessage) {
    return std::span(acrMessage).subspan(ZTSSensorHeader::Size);
}

}  // namespace

ZTCSensorClient::ZTCSensorClient(ZTSSensorOptions aOptions)
    : mOptions(std::move(aOptions)),
      mClaim(mOptions.mDirectory, mOptions.mWait),
      // Answers to a client before this one wait in the pipe perhaps: they have other tags.
      mTag(std::random_device()()) {}

void ZTCSensorClient::startScope(std::uint32_t aCeiling) {
    order(encodeCommand(mTag, ZTESensorCommand::StartScope, aCeiling));
}

void ZTCSensorClient::stop() {
    order(encodeCommand(mTag, ZTESensorCommand::Stop));
}

void ZTCSensorClient::registerTargets(std::span<const ZTSSensorTarget> aTargets) {
    do {
        const auto lPart = aTargets.first(std::min(aTargets.size(), ZTSensorMaxTargets));
        order(encodeTargets(mTag, lPart));
        aTargets = aTargets.subspan(lPart.size());
    } while (!aTargets.empty());
}

void ZTCSensorClient::setCollectionPeriod(std::uint32_t aSeconds) {
    order(encodeCommand(mTag, ZTESensorCommand::CollectionPeriod, aSeconds));
}

void ZTCSensorClient::shutDown() {
    order(encodeCommand(mTag, ZTESensorCommand::ShutDown));
}

ZTSensorBytes ZTCSensorClient::fetch() {
    return ask(encodeCommand(mTag, ZTESensorCommand::GetScopeData));
}

void ZTCSensorClient::order(const ZTSensorBytes& acrCommand) {
    const ZTSensorBytes lAnswer = ask(acrCommand);
    try {
        decodeSuccess(bodyOf(lAnswer));
    } catch (const ZTCMalformedAnswerError&) {
        mPipes.reset();
        throw;
    }
}

ZTSensorBytes ZTCSensorClient::ask(const ZTSensorBytes& acrCommand) {
    if (mPipes == nullptr) {
        mPipes = std::make_unique<ZTCSensorPipes>(mOptions.mDirectory);
    }
    try {
        return mPipes->ask(acrCommand, mTag++, ZTCSensorPipes::Clock::now() + mOptions.mTimeout);
    } catch (...) {
        mPipes.reset();
        throw;
    }
}
