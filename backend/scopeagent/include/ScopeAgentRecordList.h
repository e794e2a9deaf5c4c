// The records of one adapter, in the order of their creation.
#pragma once

#include <deque>

#include "ScopeAgentRecord.h"
#include "ZTMap.h"

class ZTCScopeAgentSystem;

/// No lock of its own, as ZTCScopeAgentRecord.
class ZTCScopeAgentRecordList {
  public:
    ZTCScopeAgentRecordList(unsigned int aBoard, ZTCScopeAgentSystem* /*apSystem*/) : mBoard(aBoard) {}
    virtual ~ZTCScopeAgentRecordList() = default;

    unsigned int getBoard() const { return mBoard; }
    unsigned int getRecordCount() const { return static_cast<unsigned int>(mRecords.size()); }
    /// The occurrences of all records.
    unsigned int getOccurrences() const;

    /// Adds a record at the end. Throws ZTCNoMemoryEx, the list unchanged.
    void addRecord(ZTCPointer<ZTCScopeAgentRecord>&& arRecord);
    void clear() { mRecords.clear(); }

    /// The number of records, then each, oldest first.
    void encode(ZTCEncodableOutStream& arStream) const;

  private:
    unsigned int mBoard;
    std::deque<ZTCPointer<ZTCScopeAgentRecord>> mRecords;
};

/// By board number.
using ZTCScopeAgentRecordLists = ZTMap<unsigned int, ZTCPointer<ZTCScopeAgentRecordList>>;
