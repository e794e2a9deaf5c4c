#include <gtest/gtest.h>

#include <string>

#include "DateTime.h"
#include "EncodableStream.h"
#include "ScopeData.h"

using std::string_literals::operator""s;

namespace {

using Out = ZTCEncodableOutStream;
using In = ZTCEncodableInStream;

constexpr unsigned char sNode[] = {0x20, 0, 0, 0x25, 0xb5, 1, 0, 0x0a};
constexpr unsigned char sPort[] = {0x20, 1, 0, 0x25, 0xb5, 1, 0xff, 0x0a};

void writeName(Out& arOut, const ZTCWorldWideName& acrName) {
    ztwire::put(arOut.extend(ZTCWorldWideName::Size), acrName.getBinaryForm(), ZTCWorldWideName::Size);
}

// Reads a value and writes it again.
template <class Value>
void copyOf(In& arIn, Out& arOut) {
    Value lValue{};
    if constexpr (std::is_same_v<Value, ZTCWorldWideName>) {
        lValue.decode(arIn);
        writeName(arOut, lValue);
    } else {
        arIn >> lValue;
        arOut << lValue;
    }
}

const ZTCScopeEvent sEvent(2, 0xf1);

const struct {
    const char* mpName;
    void (*mpWrite)(Out& arOut);
    std::string mBytes;
    void (*mpCopy)(In& arIn, Out& arOut) = nullptr;  // if it is read, too
} sValues[] = {
    {"u8", [](Out& arOut) { arOut << sPort[6]; }, "\xff", copyOf<unsigned char>},
    {"u16", [](Out& arOut) { arOut << static_cast<unsigned short>(0xfedc); }, "\xfe\xdc"},
    {"u32", [](Out& arOut) { arOut << 0xfedcba98; }, "\xfe\xdc\xba\x98", copyOf<unsigned int>},
    {"i32", [](Out& arOut) { arOut << -2; }, "\xff\xff\xff\xfe"},
    {"no text", [](Out& arOut) { arOut << ZTCString(""); }, "\0\0\0\0"s},
    {"text", [](Out& arOut) { arOut << ZTCString("a\xff\x01"); }, "\0\0\0\3a\xff\1"s},
    {"name", [](Out& arOut) { writeName(arOut, ZTCWorldWideName(sNode)); }, " \0\0\x25\xb5\1\0\n"s,
     copyOf<ZTCWorldWideName>},
    {"time", [](Out& arOut) { ZTCDateTime(4294967298999999999).encode(arOut); },
     "\0\0\0\1\0\0\0\2\x3b\x9a\xc9\xff"s},
    {"data", [](Out& arOut) { ZTCScopeData(sEvent, sPort, 2).encode(arOut); }, "\2\xf1\0\0\0\0\2 \1"s},
    {"named data", [](Out& arOut) { ZTCScopeData(sEvent, sNode + 3, 2, sNode, sPort).encode(arOut); },
     "\2\xf1\1 \0\0\x25\xb5\1\0\n \1\0\x25\xb5\1\xff\n\0\0\0\2\x25\xb5"s},
};

std::string bytesOf(const Out& acrOut) {
    const ZTCBuffer& lrBuffer = *acrOut.getBuffer();
    return {lrBuffer.getBytes(), lrBuffer.getBytes() + lrBuffer.getLength()};
}

// A buffer whose memory ends behind the bytes.
ZTCPointer<ZTCBuffer> bufferOf(const std::string& acrBytes) {
    const auto lBuffer = makePointer<ZTCBuffer>(static_cast<unsigned int>(acrBytes.size()));
    memcpy(lBuffer->extend(lBuffer->getRoom()), acrBytes.data(), acrBytes.size());
    return lBuffer;
}

}  // namespace

TEST(EncodableStreamTest, WritesAndReadsEveryValueAsItIsOnTheWireAndRefusesEveryCut) {
    for (const auto& lrValue : sValues) {
        ZTCBufferExpOutStream lOut(0);
        lrValue.mpWrite(lOut);
        EXPECT_EQ(bytesOf(lOut), lrValue.mBytes) << lrValue.mpName;
        for (std::size_t lLength = 0; lrValue.mpCopy && lLength <= lrValue.mBytes.size(); ++lLength) {
            SCOPED_TRACE(lrValue.mpName + " of "s + std::to_string(lLength));
            ZTCBufferStream lStream(bufferOf(lrValue.mBytes.substr(0, lLength)));
            EXPECT_EQ(lStream.where(), 0U);
            In lIn(lStream);
            ZTCBufferExpOutStream lCopy(1);
            if (lLength < lrValue.mBytes.size()) {
                EXPECT_THROW(lrValue.mpCopy(lIn, lCopy), ZTCInvalidEx);
                EXPECT_THROW(lIn.take(0xffffffff), ZTCInvalidEx);
                EXPECT_LE(lStream.getOffset(), lLength);
            } else {
                lrValue.mpCopy(lIn, lCopy);
                EXPECT_THROW(lIn.take(1), ZTCInvalidEx) << "behind the end";
                EXPECT_EQ(bytesOf(lCopy), lrValue.mBytes);
                EXPECT_EQ(lStream.getOffset(), lLength);
            }
        }
    }
}
