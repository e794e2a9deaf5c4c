// The records of one adapter, in the order of their creation.
//
// A record lies in the list as it goes into a response (docs/protocol.md), one right behind the other. Only
// the last one can grow, and grows at the list's end.
#pragma once

#include <vector>

#include "Log.h"
#include "ScopeAgentChunks.h"

inline constexpr char ZTScopeAgentRecordListFile[] = "ScopeAgentRecordList";

/// No lock of its own: changed under the scope-data lock, and encoded when no other thread can reach it. Can
/// be moved, not copied.
class ZTCScopeAgentRecordList {
  public:
    explicit ZTCScopeAgentRecordList(unsigned int aBoard) : mBoard(aBoard) {}

    unsigned int getBoard() const { return mBoard; }
    /// The records that are whole: without the one that is held back.
    unsigned int getRecordCount() const { return mRecordCount; }
    /// The occurrences of all records.
    unsigned int getOccurrences() const { return mOccurrences; }

    /// Room at the end, for a record or for what one grows by. Throws ZTCNoMemoryEx, the list unchanged.
    unsigned char* extend(unsigned int aCount, ZTCScopeAgentChunks& arSpare) {
        return mChunks.extend(aCount, arSpare);
    }
    /// Counts the last record, which is whole now.
    void addRecord(ZTCLogMask aMask, unsigned int aOccurrences) {
        const ZTCTraceScope lTrace(aMask, ZTScopeAgentRecordListFile);
        ++mRecordCount;
        mOccurrences += aOccurrences;
    }
    /// Gives its memory, and with it its records, to the spare chunks, as long as those are fewer than so
    /// many. After it the list is only good to be destroyed.
    void giveTo(ZTCScopeAgentChunks& arSpare, unsigned int aMost) { mChunks.giveTo(arSpare, aMost); }

    /// The bytes of all records.
    std::size_t getSize() const { return mChunks.getSize(); }
    /// The number of records, then each, oldest first.
    void encode(ZTCEncodableOutStream& arStream) const;

  private:
    unsigned int mBoard;
    unsigned int mRecordCount = 0;
    unsigned int mOccurrences = 0;
    ZTCScopeAgentChunks mChunks;
};

/// By board number.
using ZTCScopeAgentRecordLists = std::vector<ZTCScopeAgentRecordList>;
