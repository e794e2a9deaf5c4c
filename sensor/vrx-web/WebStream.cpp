#include "WebStream.h"

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

#include "IncidentFollow.h"
#include "ServiceThread.h"
#include "StoreFollow.h"
#include "TimeText.h"
#include "WebPieces.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds sLookEvery(250);
constexpr std::chrono::seconds sTryEvery(1);  // where it cannot be read
constexpr std::chrono::seconds sOpenEvery(
    3);  // who has it open does not see that nobody could open it by now
constexpr std::chrono::seconds sEndsWithin(1);
constexpr unsigned int sShareOfIncidents = 10;  // they are looked at in one part of the time at most
constexpr std::size_t sMostPieces = 4096;
constexpr std::size_t sMostBytes = std::size_t{4} << 20;
constexpr std::uint64_t sMostCaught = 10'000;  // records
constexpr std::size_t sCaughtBytes = std::size_t{1} << 20;
constexpr ZTNanoseconds sClosedLate = 3600 * ZTSecond;  // behind the time that it was closed as of

std::uint64_t sSecondsNow() {
    return toSensorTime(std::chrono::system_clock::now()).mSeconds;
}

// Incidents that were closed since somebody had this event.
ZTNanoseconds sSinceOf(const ZTSWebEventId& acrId) {
    constexpr std::uint64_t lEndOfClock = 9'000'000'000;
    return static_cast<ZTNanoseconds>(std::min(acrId.mSeconds, lEndOfClock)) * ZTSecond - sClosedLate;
}

std::string sGap(std::optional<std::uint64_t> aRecords) {
    return "{\"records\":" + (aRecords ? std::to_string(*aRecords) : "null") + "}";
}

// The last pieces, each with its id.
class ZTCWebRing {
  public:
    using Place = ZTCWebStream::Place;

    Place getEnd() const { return mFirst + mPieces.size(); }
    Place getFirst() const { return mFirst; }
    ZTWebPiece at(Place aPlace) const { return mPieces[aPlace - mFirst]; }

    void add(ZTWebPiece apPiece) {
        mBytes += apPiece->size();
        mPieces.push_back(std::move(apPiece));
        while (mPieces.size() > sMostPieces || (mBytes > sMostBytes && mPieces.size() > 1)) {
            mBytes -= mPieces.front()->size();
            mPieces.pop_front();
            ++mFirst;
        }
    }

  private:
    std::deque<ZTWebPiece> mPieces;
    Place mFirst = 1;
    std::size_t mBytes = 0;
};

}  // namespace

class ZTCWebStream::Impl {
  public:
    Impl(std::string aStore, ZTCWebHealth& arHealth, std::function<void()> aHasNews)
        : mStore(std::move(aStore)), mrHealth(arHealth), mHasNews(std::move(aHasNews)) {
        mAt.mRun = static_cast<std::uint64_t>(
            std::chrono::nanoseconds(std::chrono::system_clock::now().time_since_epoch()).count());
    }

    void run();
    bool endWithin(std::chrono::seconds aTime);

    std::optional<Place> begin(const std::string& acrLastEventId) const;
    Taken take(Place& arPlace) const;
    Caught catchUp(ZTCStoreReader& arReader, const std::string& acrLastEventId) const;

  private:
    // ---- The thread's alone ----
    void look();
    void open();
    void giveUp();
    void readRecords();
    void readIncidents();
    void send(const char* apEvent, const std::string& acrData, ZTSWebEventId aId);
    bool waitUnlessEnded(std::chrono::milliseconds aTime);
    void tellHistory(const std::string& acrWhy);
    void tellNews();

    const std::string mStore;
    std::unique_ptr<ZTCStoreReader> mpReader;
    Clock::time_point mOpened;
    std::optional<ZTCStoreFollow> mFollow;
    std::optional<ZTCIncidentFollow> mIncidents;
    ZTCWebPieces mPieces;
    bool mHasIncidents = false;  ///< they may have changed since they were looked at
    Clock::time_point mIncidentsDue;
    bool mHasSent = false;

    // ---- Of all ----
    ZTSWebEventId getHead() const {
        const std::scoped_lock lLock(mMutex);
        return mAt;
    }

    mutable std::mutex mMutex;
    ZTCWebRing mRing;
    ZTSWebEventId mAt;  ///< of the last piece; a store of 0: none was read yet. The thread alone writes it

    std::mutex mEndMutex;
    std::condition_variable mWakes;
    bool mIsToEnd = false;
    bool mHasEnded = false;
    ZTCWebHealth& mrHealth;  ///< it and the next one are not touched once it is to end
    const std::function<void()> mHasNews;
};

// ---- The thread ----

void ZTCWebStream::Impl::run() {
    std::chrono::milliseconds lPause = sLookEvery;
    do {
        lPause = sTryEvery;
        try {
            look();
            tellHistory("");
            lPause = sLookEvery;
        } catch (const ZTCStoreError& lrError) {
            // It is being set aside or made anew, or is held by somebody: it may be there the next time.
            giveUp();
            tellHistory(lrError.what());
        } catch (const std::bad_alloc&) {
            giveUp();
            tellHistory("no memory is left");
        }
        tellNews();
    } while (waitUnlessEnded(lPause));
    const std::scoped_lock lLock(mEndMutex);
    mHasEnded = true;
    mWakes.notify_all();
}

bool ZTCWebStream::Impl::waitUnlessEnded(std::chrono::milliseconds aTime) {
    std::unique_lock lLock(mEndMutex);
    return !mWakes.wait_for(lLock, aTime, [this] { return mIsToEnd; });
}

void ZTCWebStream::Impl::tellHistory(const std::string& acrWhy) {
    const std::scoped_lock lLock(mEndMutex);
    if (!mIsToEnd) {
        mrHealth.noteHistory(acrWhy);
    }
}

void ZTCWebStream::Impl::tellNews() {
    const std::scoped_lock lLock(mEndMutex);
    if (std::exchange(mHasSent, false) && !mIsToEnd) {
        mHasNews();
    }
}

bool ZTCWebStream::Impl::endWithin(std::chrono::seconds aTime) {
    std::unique_lock lLock(mEndMutex);
    mIsToEnd = true;
    mWakes.notify_all();
    return mWakes.wait_for(lLock, aTime, [this] { return mHasEnded; });
}

// What was read and not sent is read again, and incidents are sent as they are then.
void ZTCWebStream::Impl::giveUp() {
    mpReader.reset();
    mFollow.reset();
    mIncidents.reset();
}

void ZTCWebStream::Impl::look() {
    if (!mpReader || mpReader->isReplaced() || Clock::now() - mOpened >= sOpenEvery) {
        open();
    }
    if (!mFollow) {
        mFollow.emplace(ZTSHistoryFilter{}, mAt.toPlace(mpReader->readPlace()));
    }
    if (!mIncidents) {
        mIncidents.emplace(sSinceOf(mAt));
    }
    if (mpReader->hasChanged()) {
        mHasIncidents = true;
        readRecords();
    }
    if (mHasIncidents && Clock::now() >= mIncidentsDue) {
        readIncidents();
    }
}

// A new history in the place of the old one is followed from its first record on, unless it has a past.
void ZTCWebStream::Impl::open() {
    mpReader.reset();
    mpReader = std::make_unique<ZTCStoreReader>(mStore);
    const ZTSStorePlace lPlace = mpReader->readPlace();
    const std::uint32_t lStore = shortStoreId(lPlace.mStore);
    const std::uint32_t lBefore = mAt.mStore;
    mOpened = Clock::now();
    // What has gone back is an older copy.
    if (lStore == lBefore && lPlace.mClosedTo >= mAt.mClosedTo) {
        return;
    }
    const bool lHasPast = lBefore == 0 || lPlace.mLastRecord > sMostCaught;
    ZTSWebEventId lAt = mAt;
    lAt.mStore = lStore;
    lAt.mClosedTo = lHasPast ? lPlace.mClosedTo : 0;
    lAt.mLast = lHasPast ? lPlace.mLastRecord : 0;
    lAt.mSeconds = sSecondsNow();
    mPieces.forget();
    mFollow.reset();
    mIncidents.emplace(sSinceOf(lAt));
    if (lHasPast) {
        mIncidents->skip(*mpReader);
    }
    {
        const std::scoped_lock lLock(mMutex);
        mAt = lAt;
    }
    if (lBefore != 0) {
        send("gap", sGap({}), mAt);
    }
}

void ZTCWebStream::Impl::send(const char* apEvent, const std::string& acrData, ZTSWebEventId aId) {
    aId.mNumber = mAt.mNumber + 1;  // nobody else writes it
    auto lpPiece = std::make_shared<const std::string>(makeWebPiece(aId, apEvent, acrData));
    const std::scoped_lock lLock(mMutex);
    mRing.add(std::move(lpPiece));
    mAt = aId;
    mHasSent = true;
}

void ZTCWebStream::Impl::readRecords() {
    for (bool lIsMore = true; lIsMore;) {
        ZTCStoreFollow::News lNews;
        lIsMore = mFollow->read(*mpReader, lNews);
        mPieces.see(*mpReader, lNews.mRecords);
        for (const ZTSStoredRecord& lrRecord : lNews.mRecords) {
            ZTSWebEventId lId = mAt;
            lId.pass(lrRecord);
            send("record", mPieces.tell(lrRecord), lId);
        }
        tellHistory("");
        tellNews();
        lIsMore = lIsMore && waitUnlessEnded({});
    }
}

void ZTCWebStream::Impl::readIncidents() {
    const auto lBegin = Clock::now();
    const std::uint64_t lSeconds = sSecondsNow();
    const std::vector<ZTSIncident> lIncidents = mIncidents->read(*mpReader);
    mHasIncidents = false;
    if (!lIncidents.empty()) {
        mPieces.see(*mpReader);
    }
    for (const ZTSIncident& lrIncident : lIncidents) {
        send("incident", mPieces.tell(lrIncident), mAt);
    }
    const auto lEnd = Clock::now();
    mIncidentsDue = lEnd + (lEnd - lBegin) * sShareOfIncidents;
    const std::scoped_lock lLock(mMutex);
    mAt.mSeconds = lSeconds;
}

// ---- Those who follow ----

std::optional<ZTCWebStream::Place> ZTCWebStream::Impl::begin(const std::string& acrLastEventId) const {
    const auto lId = ZTSWebEventId::fromText(acrLastEventId);
    const std::scoped_lock lLock(mMutex);
    const Place lEnd = mRing.getEnd();
    if (!lId || (lId->mRun == mAt.mRun && lId->mNumber >= lEnd)) {
        return lEnd;
    }
    const bool lIsKept = lId->mRun == mAt.mRun && lId->mNumber + 1 >= mRing.getFirst();
    return lIsKept ? std::optional(lId->mNumber + 1) : std::nullopt;
}

ZTCWebStream::Taken ZTCWebStream::Impl::take(Place& arPlace) const {
    const std::scoped_lock lLock(mMutex);
    if (arPlace < mRing.getFirst()) {
        return {nullptr, true};
    }
    return arPlace < mRing.getEnd() ? Taken{mRing.at(arPlace++), false} : Taken{};
}

namespace {

// What of the history lies between an event and the last one that the stream has sent.
class Missed {
  public:
    Missed(ZTCStoreReader& arReader, const ZTSWebEventId& acrAt, const ZTSWebEventId& acrHead)
        : mrReader(arReader), mrHead(acrHead), mAt(acrAt) {}

    ZTCWebStream::Caught read(const ZTSStorePlace& acrNow) {
        skip();
        ZTCStoreFollow lFollow({}, mAt.toPlace(acrNow));
        for (bool lIsMore = true; lIsMore;) {
            ZTCStoreFollow::News lNews;
            lIsMore = lFollow.read(mrReader, lNews);
            addRecords(lNews.mRecords);
            if (lIsMore && mText.size() >= sCaughtBytes) {
                return finish(mAt);
            }
        }
        addIncidents();
        return finish(mrHead);
    }

  private:
    // An event of another history, or of long ago.
    void skip() {
        if (mAt.mStore != mrHead.mStore) {
            mAt.mStore = mrHead.mStore;
            mAt.mClosedTo = mrHead.mClosedTo;
            mAt.mLast = mrHead.mLast;
            add("gap", sGap({}));
        } else if (mrHead.mLast > mAt.mClosedTo + sMostCaught) {
            const std::uint64_t lFrom = mrHead.mLast - sMostCaught;
            const std::uint64_t lMissing = lFrom - mAt.mClosedTo;
            mAt.mClosedTo = lFrom;
            mAt.mLast = std::max(mAt.mLast, lFrom);
            add("gap", sGap(lMissing));
        }
        mAt.mRun = mAt.mNumber = 0;
    }

    // The stream itself sends what comes behind its last piece, and what was open there and has closed since.
    void addRecords(std::vector<ZTSStoredRecord>& arRecords) {
        std::erase_if(arRecords, [this](const ZTSStoredRecord& acrRecord) {
            return acrRecord.mId > (acrRecord.mIsOpen ? mrHead.mLast : mrHead.mClosedTo);
        });
        mPieces.see(mrReader, arRecords);
        for (const ZTSStoredRecord& lrRecord : arRecords) {
            mAt.pass(lrRecord);
            add("record", mPieces.tell(lrRecord));
        }
    }

    void addIncidents() {
        const std::vector<ZTSIncident> lIncidents = ZTCIncidentFollow(sSinceOf(mAt)).read(mrReader);
        mPieces.see(mrReader);
        for (const ZTSIncident& lrIncident : lIncidents) {
            add("incident", mPieces.tell(lrIncident));
        }
    }

    // What the id of the last one is, is known at the end: each is written when the next one comes.
    void add(const char* apEvent, std::string aData) {
        write();
        mpEvent = apEvent;
        mData = std::move(aData);
        mId = mAt;
    }
    void write() {
        if (mpEvent != nullptr) {
            mText += makeWebPiece(mId, mpEvent, mData);
        }
    }

    ZTCWebStream::Caught finish(const ZTSWebEventId& acrId) {
        mId = acrId;
        write();
        return {std::make_shared<const std::string>(std::move(mText)), acrId.toText()};
    }

    ZTCStoreReader& mrReader;
    const ZTSWebEventId& mrHead;
    ZTSWebEventId mAt;
    ZTCWebPieces mPieces;
    std::string mText;

    const char* mpEvent = nullptr;  ///< of the one that is not written yet; null: there is none
    std::string mData;
    ZTSWebEventId mId;
};

}  // namespace

ZTCWebStream::Caught ZTCWebStream::Impl::catchUp(ZTCStoreReader& arReader,
                                                 const std::string& acrLastEventId) const {
    const ZTSWebEventId lHead = getHead();
    const ZTSStorePlace lNow = arReader.readPlace();
    if (lHead.mStore != shortStoreId(lNow.mStore)) {
        throw ZTCStoreError(ZTEStoreFault::Busy, "the history is just being opened: try again");
    }
    return Missed(arReader, ZTSWebEventId::fromText(acrLastEventId).value_or(lHead), lHead).read(lNow);
}

ZTCWebStream::ZTCWebStream(std::string aStore, ZTCWebHealth& arHealth, std::function<void()> aHasNews)
    : mpImpl(std::make_shared<Impl>(std::move(aStore), arHealth, std::move(aHasNews))) {
    startServiceThread("vrx-web-follow", [lpImpl = mpImpl] { lpImpl->run(); }).detach();
}

ZTCWebStream::~ZTCWebStream() {
    mpImpl->endWithin(sEndsWithin);
}

std::optional<ZTCWebStream::Place> ZTCWebStream::begin(const std::string& acrLastEventId) const {
    return mpImpl->begin(acrLastEventId);
}
ZTCWebStream::Taken ZTCWebStream::take(Place& arPlace) const {
    return mpImpl->take(arPlace);
}
ZTCWebStream::Caught ZTCWebStream::catchUp(ZTCStoreReader& arReader,
                                           const std::string& acrLastEventId) const {
    return mpImpl->catchUp(arReader, acrLastEventId);
}
