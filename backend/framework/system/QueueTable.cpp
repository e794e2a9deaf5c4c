#include "QueueTable.h"

unsigned int ZTCQueueTable::add() {
    const ZTCScopedLock lLock(mChanged.getMutex());
    try {
        mSequences.emplace_back();
    } catch (const std::bad_alloc&) {
        throwNoMemory();
    }
    return static_cast<unsigned int>(mSequences.size()) - 1;
}

void ZTCQueueTable::put(unsigned int aId, const Element& acrElement, End aEnd) {
    Sequence lElement;
    orNoMemory([&] { lElement.push_back(acrElement); });
    {
        const ZTCScopedLock lLock(mChanged.getMutex());
        Sequence& lrSequence = at(aId);
        lrSequence.splice(aEnd == End::Front ? lrSequence.begin() : lrSequence.end(), lElement);
    }
    wake();
}

ZTCQueueTable::Element ZTCQueueTable::take(unsigned int aId, End aEnd) {
    const ZTCScopedLock lLock(mChanged.getMutex());
    Sequence& lrSequence = notEmpty(aId);
    const auto lAt = aEnd == End::Front ? lrSequence.begin() : std::prev(lrSequence.end());
    Element lElement(*lAt);
    lrSequence.erase(lAt);
    return lElement;
}

ZTCQueueTable::Element ZTCQueueTable::front(unsigned int aId) {
    const ZTCScopedLock lLock(mChanged.getMutex());
    return notEmpty(aId).front();
}

void ZTCQueueTable::clear(unsigned int aId) {
    Sequence lCleared;  // what was in it is released without the lock
    const ZTCScopedLock lLock(mChanged.getMutex());
    lCleared.swap(at(aId));
}

unsigned int ZTCQueueTable::size(unsigned int aId) {
    const ZTCScopedLock lLock(mChanged.getMutex());
    return static_cast<unsigned int>(at(aId).size());
}

void ZTCQueueTable::erase(unsigned int aId, Sequence::iterator& arAt) {
    const Element lErased(*arAt);  // released without the lock
    const ZTCScopedLock lLock(mChanged.getMutex());
    arAt = at(aId).erase(arAt);
}

ZTCQueueTable::Sequence::iterator ZTCQueueTable::begin(unsigned int aId) {
    const ZTCScopedLock lLock(mChanged.getMutex());
    return at(aId).begin();
}

ZTCQueueTable::Sequence::iterator ZTCQueueTable::end(unsigned int aId) {
    const ZTCScopedLock lLock(mChanged.getMutex());
    return at(aId).end();
}

void ZTCQueueTable::waitOnEmpty(unsigned int aId, unsigned int aSeconds, const std::atomic<bool>& acrGiveUp) {
    const timespec lDeadline = OsDeadlineIn(aSeconds);
    const ZTCScopedLock lLock(mChanged.getMutex());
    while (at(aId).empty() && !acrGiveUp.load()) {
        mChanged.waitUntil(lDeadline);
    }
}

ZTCQueueTable::Sequence& ZTCQueueTable::at(unsigned int aId) {
    if (aId >= mSequences.size()) {
        throwInvalidValue();
    }
    return mSequences[aId];
}

ZTCQueueTable::Sequence& ZTCQueueTable::notEmpty(unsigned int aId) {
    Sequence& lrSequence = at(aId);
    if (lrSequence.empty()) {
        throw ZTCNotFoundEx("The queue or list is empty");
    }
    return lrSequence;
}
