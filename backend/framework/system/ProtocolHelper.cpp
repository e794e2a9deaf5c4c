#include "ProtocolHelper.h"

#include <cstdio>

#include "BigEndian.h"

namespace {

constexpr unsigned int sMagic = 0x56525831;  // "VRX1"

[[noreturn]] void sRefuse(const char* apWhat, unsigned int aValue) {
    char lText[128];
    snprintf(lText, sizeof lText, "A message header is malformed: %s 0x%x", apWhat, aValue);
    throw ZTCInvalidEx(lText, 6);
}

}  // namespace

void ZTCProtocolHelper::read(ZTCPointer<ZTCReader>& arReader, ZTCPointer<ZTCBuffer>& arBuffer,
                             unsigned int /*aFlags*/) {
    unsigned char lHeader[HeaderSize];
    arReader->read(lHeader, HeaderSize);
    const auto lMagic = ztwire::get<unsigned int>(lHeader);
    const auto lLength = ztwire::get<unsigned int>(lHeader + 8);
    if (lMagic != sMagic) {
        sRefuse("magic", lMagic);
    }
    if (lLength == 0 || lLength > MaxCommandSize) {
        sRefuse("body length", lLength);
    }
    ZTCPointer<ZTCBuffer> lBody(makePointer<ZTCBuffer>(lLength));
    lBody->setLength(lLength);
    arReader->read(lBody->getBytes(), lLength);
    mTag = ztwire::get<unsigned int>(lHeader + 4);
    arBuffer.swap(lBody);
}

void ZTCProtocolHelper::write(ZTCPointer<ZTCWriter>& arWriter, const ZTCPointer<ZTCBuffer>& acrBuffer,
                              unsigned int /*aFlags*/) {
    unsigned char lHeader[HeaderSize];
    ztwire::put(ztwire::put(ztwire::put(lHeader, sMagic), mTag), acrBuffer->getLength());
    const iovec lPieces[] = {{lHeader, HeaderSize}, {acrBuffer->getBytes(), acrBuffer->getLength()}};
    arWriter->write(lPieces, 2);
}
