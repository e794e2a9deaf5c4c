#include "Collector.h"

#include <fmt/format.h>

#include <algorithm>

#include "AgentStatus.h"
#include "Failure.h"

namespace {

constexpr std::chrono::milliseconds sHeartbeat(1000);

std::string sPeriodText(const ZTSCollection& acrCollection) {
    const double lSeconds = std::chrono::duration<double>(acrCollection.mEvery).count();
    return fmt::format("a fetch every {:g} s", lSeconds);
}

}  // namespace

void startCollection(ZTCSensorClient& arClient, std::uint32_t aCeiling) {
    arClient.stop();
    arClient.startScope(aCeiling);
}

ZTSFetched readFetched(const ZTSensorBytes& acrMessage, std::optional<ZTSFetched::Time> aTime) {
    return {aTime, decodeScopeData(std::span(acrMessage).subspan(ZTSSensorHeader::Size))};
}

ZTCCollector::ZTCCollector(const ZTSSensorOptions& acrOptions, const ZTSCollection& acrCollection,
                           ZTCShow& arShow, ZTCAnswerFile* apSaved)
    : mCollection(acrCollection),
      mrShow(arShow),
      mpSaved(apSaved),
      mDirectory(acrOptions.mDirectory),
      mClient(acrOptions),
      mPidFile(acrOptions.mDirectory) {}

void ZTCCollector::run() {
    const Clock::time_point lBegin = Clock::now();
    const Clock::time_point lEnd = mCollection.mFor ? lBegin + *mCollection.mFor : Clock::time_point::max();
    Clock::time_point lNextFetch = lBegin;
    for (;;) {
        mPidFile.touch();
        const Clock::time_point lNow = Clock::now();
        if (lNow >= lNextFetch || lNow >= lEnd) {
            fetch();
            // Not from now, or the period would grow by what a fetch takes. After a long one, none is made up
            // for.
            lNextFetch = std::max(lNextFetch + mCollection.mEvery, Clock::now());
        }
        if (lNow >= lEnd) {
            break;
        }
        switch (mWaiting.until(std::min({lNextFetch, lEnd, lNow + sHeartbeat}))) {
            case ZTCWaiting::Reason::End:
                return checkNothingOpen();
            case ZTCWaiting::Reason::Resize:
                mrShow.draw();
                break;
            case ZTCWaiting::Reason::Time:
                break;
        }
    }
    checkNothingOpen();
}

void ZTCCollector::checkNothingOpen() const {
    if (mClient.isFetchOpen()) {
        throw ZTCScopeFailure("the agent has not answered the last fetch: what it had collected is lost");
    }
}

void ZTCCollector::fetch() {
    try {
        if (!mIsThere) {
            begin();
        }
        take(mClient.fetch());
    } catch (const ZTCNoAgentError& lrError) {
        lose(lrError.what());
    } catch (const ZTCTimedOutError& lrError) {
        // Perhaps it only takes longer: its answer is not given up.
        mClient.isFetchOpen() ? tellOnce(lrError.what(), true) : lose(lrError.what());
    } catch (const ZTCMalformedAnswerError& lrError) {
        lose(lrError.what());
    } catch (const ZTCPipesTakenError& lrError) {
        lose(lrError.what());
    }
}

// The first words with an agent: how often it is fetched from, and the collection's start when that is ours
// to do.
void ZTCCollector::begin() {
    const auto lSeconds = std::chrono::ceil<std::chrono::seconds>(mCollection.mEvery).count();
    mClient.setCollectionPeriod(static_cast<std::uint32_t>(lSeconds));
    if (mCollection.mCeiling) {
        startCollection(mClient, *mCollection.mCeiling);
    }
    const ZTSAgentStatus lStatus = readAgentStatus(mDirectory);
    mIsThere = true;
    mToldLast.clear();
    mrShow.tell(fmt::format("vrx-sca, process {}, in {}: {}{}", lStatus.mProcess, mDirectory,
                            sPeriodText(mCollection), mCollection.mCeiling ? ", collection started" : ""),
                true);
}

void ZTCCollector::take(const ZTSensorBytes& acrMessage) {
    if (mpSaved != nullptr) {
        save(acrMessage);  // first: whatever happens to be wrong with it
    }
    mrShow.add(readFetched(acrMessage, std::chrono::system_clock::now()));
    if (!mToldLast.empty()) {
        mToldLast.clear();
        mrShow.tell("the agent answers again", true);
    }
}

// A full disk is tried again with each answer: the file then lacks those that came meanwhile.
void ZTCCollector::save(const ZTSensorBytes& acrMessage) {
    try {
        mpSaved->add(acrMessage);
        if (!mIsSaving) {
            mrShow.tell(fmt::format("answers are saved again, {} were not", mUnsaved), true);
        }
        mIsSaving = true;
    } catch (const ZTCUnsavedAnswer& lrError) {
        if (!mCollection.mGoesOnUnsaved) {
            throw;
        }
        if (mIsSaving) {
            mrShow.tell(fmt::format("answers are shown, but no longer saved: {}", lrError.what()), true);
        }
        mIsSaving = false;
        ++mUnsaved;
    }
}

void ZTCCollector::lose(const char* apWhy) {
    const std::string lText =
        (mIsThere ? "the agent is gone: " : "waiting for an agent: ") + std::string(apWhy);
    mIsThere = false;
    tellOnce(lText, false);
}

void ZTCCollector::tellOnce(const std::string& acrText, bool aIsThere) {
    if (acrText != mToldLast) {
        mToldLast = acrText;
        mrShow.tell(acrText, aIsThere);
    }
}
