#include "DateTime.h"

#include "EncodableStream.h"
#include "Log.h"

void ZTCDateTime::__set(const char* apText) {
    if (ClibStrcmp(apText, ".") != 0) {
        throw ZTCInvalidEx("A time is set to \".\", which is now");
    }
    *this = ZTCDateTime(ztlog::now());
}

void ZTCDateTime::encode(ZTCEncodableOutStream& arStream) const {
    encode(arStream.extend(EncodedSize));
}

unsigned char* ZTCDateTime::encode(unsigned char* apTo) const {
    unsigned char* lpAt = ztwire::put(apTo, static_cast<std::uint32_t>(mSeconds >> 32));
    lpAt = ztwire::put(lpAt, static_cast<std::uint32_t>(mSeconds));
    return ztwire::put(lpAt, mNanoseconds);
}
