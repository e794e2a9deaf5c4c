// The queues, or the lists, of a system: sequences addressed by number. Any thread.
#pragma once

#include <atomic>
#include <list>
#include <vector>

#include "Conditional.h"
#include "Pointer.h"
#include "Queueable.h"

class ZTCQueueTable {
  public:
    using Element = ZTCPointer<ZTCQueueable>;
    using Sequence = std::list<Element>;
    enum class End { Front, Back };

    /// Makes an empty sequence and returns its number. Before the threads are started. Throws ZTCNoMemoryEx.
    unsigned int add();

    // A number that is not there is ZTCInvalidEx.

    /// Throws ZTCNoMemoryEx, the sequence unchanged.
    void put(unsigned int aId, const Element& acrElement, End aEnd);
    /// Throws ZTCNotFoundEx when the sequence is empty.
    Element take(unsigned int aId, End aEnd);
    Element front(unsigned int aId);
    void clear(unsigned int aId);
    unsigned int size(unsigned int aId);
    /// Takes the element out and moves the iterator behind it.
    void erase(unsigned int aId, Sequence::iterator& arAt);
    Sequence::iterator begin(unsigned int aId);
    Sequence::iterator end(unsigned int aId);

    /// Returns when the sequence has an element or acrGiveUp, changed before a call of wake(), is set. Throws
    /// ZTCTimeOutEx.
    void waitOnEmpty(unsigned int aId, unsigned int aSeconds, const std::atomic<bool>& acrGiveUp);
    void wake() { mChanged.signal(); }

  private:
    Sequence& at(unsigned int aId) ZT_REQUIRES(mChanged.getMutex());
    Sequence& notEmpty(unsigned int aId) ZT_REQUIRES(mChanged.getMutex());

    ZTCConditional mChanged;
    std::vector<Sequence> mSequences ZT_GUARDED_BY(mChanged.getMutex());
};
