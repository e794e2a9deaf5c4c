// The sensor's work: fetches again and again, keeps the sensor's heartbeat, and lives on while agents come
// and go.
#pragma once

#include <optional>

#include "AnswerFile.h"
#include "SensorClient.h"
#include "SensorPidFile.h"
#include "Shows.h"
#include "Waiting.h"

struct ZTSCollection {
    using Duration = std::chrono::milliseconds;

    Duration mEvery{5000};                  ///< from fetch to fetch
    std::optional<Duration> mFor;           ///< how long; nothing: until a signal
    std::optional<std::uint32_t> mCeiling;  ///< set: each agent's collection is started, with this ceiling
    bool mGoesOnUnsaved = false;            ///< what cannot be saved is shown, and does not end the run
};

/// One thread.
class ZTCCollector {
  public:
    /// apSaved may be null: what comes is not saved. Throws ZTCPipesTakenError and the other errors of a
    /// client and of a pid file; that no agent runs is no error.
    ZTCCollector(const ZTSSensorOptions& acrOptions, const ZTSCollection& acrCollection, ZTCShow& arShow,
                 ZTCAnswerFile* apSaved);

    /// Until the time is over or a signal ends it. Whatever was fetched is saved and shown by then, whole.
    /// Throws ZTCScopeFailure when it can be neither.
    void run();
    /// The answers that could not be saved.
    std::uint64_t getUnsaved() const { return mUnsaved; }

  private:
    using Clock = ZTCWaiting::Clock;

    void fetch();
    void checkNothingOpen() const;
    void begin();
    void take(const ZTSensorBytes& acrMessage);
    void save(const ZTSensorBytes& acrMessage);
    void lose(const char* apWhy);
    void tellOnce(const std::string& acrText, bool aIsThere);

    const ZTSCollection mCollection;
    ZTCShow& mrShow;
    ZTCAnswerFile* const mpSaved;
    const std::string mDirectory;
    ZTCSensorClient mClient;
    ZTCWaiting mWaiting;  // from here on: the wait for another client may be ended by any signal
    ZTCSensorPidFile mPidFile;
    bool mIsThere = false;  ///< an agent has answered, and has not failed since
    std::string mToldLast;
    bool mIsSaving = true;  ///< the last answer was saved
    std::uint64_t mUnsaved = 0;
};

/// Starts a collection, also when one is under way: that one is ended, so that no event is told twice.
void startCollection(ZTCSensorClient& arClient, std::uint32_t aCeiling);
/// What a fetch's answer says. Throws ZTCMalformedAnswerError, ZTCRefusedError.
ZTSFetched readFetched(const ZTSensorBytes& acrMessage, std::optional<ZTSFetched::Time> aTime);
