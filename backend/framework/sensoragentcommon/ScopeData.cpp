#include "ScopeData.h"

#include "EncodableStream.h"

void ZTCScopeData::encode(ZTCEncodableOutStream& arStream) const {
    ztwire::put(encodeHead(arStream.extend(getSize())), mpData, mLength);
}
