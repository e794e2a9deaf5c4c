#include "ScopeAgentRecordList.h"

#include "EncodableStream.h"
#include "ScopeAgentRecord.h"

void ZTCScopeAgentRecordList::encode(ZTCEncodableOutStream& arStream) const {
    for (unsigned int lAt = 0; lAt < mRecordCount && isLogged(ZTLL_Trace); ++lAt) {
        const ZTCTraceScope lTrace(
            ZTScopeAgentRecordFile);  // each record is told of, though all are copied at once
    }
    arStream << mRecordCount;
    mChunks.encode(arStream);
}
