#include "EncodableStream.h"

ZTCEncodableOutStream& ZTCEncodableOutStream::operator<<(const ZTCString& acrValue) {
    const char* const lpText = acrValue.get();
    const auto lLength = static_cast<unsigned int>(strlen(lpText));
    unsigned char* const lpAt = extend(static_cast<unsigned int>(sizeof lLength) + lLength);
    ztwire::put(ztwire::put(lpAt, lLength), lpText, lLength);
    return *this;
}
