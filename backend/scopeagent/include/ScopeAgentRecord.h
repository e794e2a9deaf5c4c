// One or more occurrences of the same event: how many, the first and the last time, and the event data.
//
// A record is an object only as long as a repeat can still be folded into it. Its bytes lie in its list from
// the beginning; what repeats change is kept here, and put in its place there when the record is complete.
#pragma once

#include "DateTime.h"
#include "Log.h"
#include "ScopeData.h"

inline constexpr char ZTScopeAgentRecordFile[] = "ScopeAgentRecord";

/// No lock of its own: changed under the scope-data lock.
class ZTCScopeAgentRecord final {
  public:
    /// Occurrences, first and last time; the scope data follows.
    static constexpr unsigned int HeadSize = 4 + 2 * ZTCDateTime::EncodedSize;

    /// Nothing: there is no record.
    ZTCScopeAgentRecord() = default;
    /// One occurrence, at aTime (nanoseconds since 1970). apRoom: where its bytes lie, HeadSize and the
    /// data's size. The event data is to be put there by the caller.
    ZTCScopeAgentRecord(ZTCLogMask aMask, unsigned int aBoard, const ZTCScopeData& acrData,
                        std::uint64_t aTime, unsigned char* apRoom)
        : mKey(keyOf(acrData.getEvent(), aBoard)),
          mLastTime(aTime),
          mpHead(apRoom),
          mLength(acrData.getLength()),
          mOccurrences(1) {
        const ZTCTraceScope lTrace(aMask, ZTScopeAgentRecordFile);
        unsigned char* const lpFirst = ztwire::put(apRoom, mOccurrences);
        unsigned char* const lpLast = ZTCDateTime(aTime).encode(lpFirst);
        mpEventData = acrData.encodeHead(ztwire::put(lpLast, lpFirst, ZTCDateTime::EncodedSize));
    }

    /// Whether there is a record.
    explicit operator bool() const { return mKey != NoKey; }
    /// Whether there is one, of this kind of event and board.
    bool isOf(const ZTCScopeEvent& acrEvent, unsigned int aBoard) const {
        return mKey == keyOf(acrEvent, aBoard);
    }

    /// Counts one more. Times of threads that come out of order, by less than a second, do not move the last
    /// one back; a clock that was set back does, also before the first one.
    void incrementOccurrences(ZTCLogMask aMask, std::uint64_t aTime) {
        const ZTCTraceScope lTrace(aMask, ZTScopeAgentRecordFile);
        ++mOccurrences;
        if (aTime > mLastTime || mLastTime - aTime >= MostOutOfOrder) {
            mLastTime = aTime;
        }
    }
    /// Wraps at 2^32.
    unsigned int getOccurrences() const { return mOccurrences; }

    /// The event data with which it began, to be set and changed in place.
    unsigned char* getEventData() { return mpEventData; }
    /// Whether the event data stays below a ceiling with aCount bytes more.
    bool mayGrowBy(unsigned int aCount, unsigned int aCeiling) const {
        return std::uint64_t{mLength} + aCount < aCeiling;
    }
    /// Notes that so many bytes of event data were put behind the record.
    void growBy(unsigned int aCount) { mLength += aCount; }

    /// Puts what repeats have changed into the record's bytes: the last thing that is done with it.
    void complete();

  private:
    /// Nanoseconds. What is earlier than the last time by more is not another thread's: the clock was set
    /// back.
    static constexpr std::uint64_t MostOutOfOrder = 1000000000;
    /// The board and the kind in one.
    static constexpr std::uint64_t NoKey = ~std::uint64_t{0};
    static std::uint64_t keyOf(const ZTCScopeEvent& acrEvent, unsigned int aBoard) {
        return std::uint64_t{aBoard} << 16 | acrEvent.getKeyform();
    }

    std::uint64_t mKey = NoKey;
    std::uint64_t mLastTime = 0;
    unsigned char* mpHead = nullptr;
    unsigned char* mpEventData = nullptr;
    unsigned int mLength = 0;
    unsigned int mOccurrences = 0;
};
