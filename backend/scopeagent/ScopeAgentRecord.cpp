#include "ScopeAgentRecord.h"

void ZTCScopeAgentRecord::complete() {
    if (mOccurrences == 1) {
        return;  // nothing has changed
    }
    unsigned char* const lpTimes = ztwire::put(mpHead, mOccurrences);
    ZTCDateTime(mLastTime).encode(lpTimes + ZTCDateTime::EncodedSize);
    ztwire::put(mpEventData - sizeof mLength, mLength);
}
