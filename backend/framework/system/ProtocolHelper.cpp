#include "ProtocolHelper.h"

#include <cstdio>

#include "BigEndian.h"
#include "ScopeWire.h"

namespace {

[[noreturn]] void sRefuse(const char* apWhat, unsigned int aValue) {
    char lText[128];
    snprintf(lText, sizeof lText, "A message header is malformed: %s 0x%x", apWhat, aValue);
    throw ZTCInvalidEx(lText);
}

}  // namespace

void ZTCProtocolHelper::read(ZTCPointer<ZTCReader>& arReader, ZTCPointer<ZTCBuffer>& arBuffer,
                             unsigned int /*aFlags*/) {
    unsigned char lHeader[ZTWireHeaderSize];
    arReader->read(lHeader, ZTWireHeaderSize);
    const auto lMagic = ztwire::get<unsigned int>(lHeader);
    const auto lLength = ztwire::get<unsigned int>(lHeader + ZTWireLengthAt);
    if (lMagic != ZTWireMagic) {
        sRefuse("magic", lMagic);
    }
    if (lLength == 0 || lLength > ZTWireMaxCommand) {
        sRefuse("body length", lLength);
    }
    ZTCPointer<ZTCBuffer> lBody(makePointer<ZTCBuffer>(lLength));
    lBody->setLength(lLength);
    arReader->read(lBody->getBytes(), lLength);
    mTag = ztwire::get<unsigned int>(lHeader + ZTWireTagAt);
    arBuffer.swap(lBody);
}

void ZTCProtocolHelper::write(ZTCPointer<ZTCWriter>& arWriter, const ZTCPointer<ZTCBuffer>& acrBuffer,
                              unsigned int /*aFlags*/) {
    unsigned char lHeader[ZTWireHeaderSize];
    ztwire::put(ztwire::put(ztwire::put(lHeader, ZTWireMagic), mTag), acrBuffer->getLength());
    const iovec lPieces[] = {{lHeader, ZTWireHeaderSize}, {acrBuffer->getBytes(), acrBuffer->getLength()}};
    arWriter->write(lPieces, 2);
}
