#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "ProtocolHelper.h"

namespace {

// Delivers the bytes it is given, and then fails.
class ScriptedReader : public ZTCReader {
  public:
    explicit ScriptedReader(const std::string& acrBytes) : mBytes(acrBytes) {}
    void read(void* apBytes, unsigned int aLength) override {
        if (aLength > mBytes.size() - mAt) {
            throw ZTCClibEx("the other end has gone", 77);
        }
        std::copy_n(mBytes.data() + mAt, aLength, static_cast<char*>(apBytes));
        mAt += aLength;
    }
    bool waitForActivity(const ZTCActivityWait& /*acrWait*/) override { return true; }
    void cancel() override {}

    std::size_t mAt = 0;

  private:
    const std::string mBytes;
};

class RecordingWriter : public ZTCWriter {
  public:
    void write(const iovec* apPieces, unsigned int aCount) override {
        for (const iovec* lpPiece = apPieces; lpPiece != apPieces + aCount; ++lpPiece) {
            mWritten.append(static_cast<const char*>(lpPiece->iov_base), lpPiece->iov_len);
        }
        if (mWritten.size() > mMost) {
            throw ZTCClibEx("the other end has gone", 77);
        }
    }
    void cancel() override {}

    std::string mWritten;
    std::size_t mMost = ~std::size_t{0};
};

std::string number(unsigned int aValue) {
    const auto lByte = [&](unsigned int aShift) { return static_cast<char>(aValue >> aShift & 255); };
    return {lByte(24), lByte(16), lByte(8), lByte(0)};
}

std::string message(unsigned int aTag, unsigned int aLength, const std::string& acrBody) {
    return "VRX1" + number(aTag) + number(aLength) + acrBody;
}

ZTCPointer<ZTCBuffer> bufferOf(const std::string& acrBytes) {
    const auto lLength = static_cast<unsigned int>(acrBytes.size());
    ZTCPointer<ZTCBuffer> lBuffer = makePointer<ZTCBuffer>(lLength);
    std::copy(acrBytes.begin(), acrBytes.end(), lBuffer->extend(lLength));
    return lBuffer;
}

std::string bytesOf(const ZTCPointer<ZTCBuffer>& acrBuffer) {
    return {reinterpret_cast<const char*>(acrBuffer->getBytes()), acrBuffer->getLength()};
}

}  // namespace

TEST(ProtocolHelper, EchoesTheTagOfTheCommandThatWasReadLast) {
    ZTCProtocolHelper lHelper;
    const std::string lLongBody(ZTCProtocolHelper::MaxCommandSize, 'b');
    const std::string lCommands = message(0x80a1b2c3, 5, std::string("a\0b\0c", 5)) + message(7, 1, "x") +
                                  message(0xffffffff, 65536, lLongBody);
    ZTCPointer<ZTCReader> lReader(new ScriptedReader(lCommands), ZTPST_Individual, ZTPMT_New);
    auto* const lpWriter = new RecordingWriter;
    ZTCPointer<ZTCWriter> lWriter(lpWriter, ZTPST_Individual, ZTPMT_New);
    ZTCPointer<ZTCBuffer> lBuffer;
    const struct {
        std::string mBody;
        unsigned int mTag;
    } lRows[] = {{std::string("a\0b\0c", 5), 0x80a1b2c3}, {"x", 7}, {lLongBody, 0xffffffff}};
    for (const auto& lrRow : lRows) {
        lHelper.read(lReader, lBuffer, 0);
        EXPECT_EQ(bytesOf(lBuffer), lrRow.mBody);
        for (const std::string& lrResponse : {std::string("\x01\0\x02", 3), std::string(100000, 'r')}) {
            lpWriter->mWritten.clear();
            lHelper.write(lWriter, bufferOf(lrResponse), 0);
            EXPECT_EQ(lpWriter->mWritten,
                      message(lrRow.mTag, static_cast<unsigned int>(lrResponse.size()), lrResponse));
        }
    }
    lpWriter->mMost = 50;
    EXPECT_THROW(lHelper.write(lWriter, bufferOf(std::string(100, 'r')), 0), ZTCClibEx);
}

TEST(ProtocolHelper, RefusesAMalformedHeaderBeforeItReadsTheBody) {
    constexpr std::size_t lHeader = 12;
    const std::string lBody(70000, 'b');
    const struct {
        std::string mBytes;
        bool mIsInvalid;  // else the reader's own exception passes
        std::size_t mRead;
    } lRows[] = {
        {message(1, 0, lBody), true, lHeader},
        {message(1, 65537, lBody), true, lHeader},
        {message(1, 0xffffffff, lBody), true, lHeader},
        {"VRX2" + message(1, 5, lBody).substr(4), true, lHeader},
        {"1XRV" + message(1, 5, lBody).substr(4), true, lHeader},
        {"V" + message(1, 5, lBody), true, lHeader},
        {"VRX1", false, 0},
        {message(1, 5, "four"), false, lHeader},
        {"", false, 0},
    };
    for (const auto& lrRow : lRows) {
        SCOPED_TRACE(lrRow.mBytes.substr(0, lHeader));
        ZTCProtocolHelper lHelper;
        auto* const lpReader = new ScriptedReader(lrRow.mBytes);
        ZTCPointer<ZTCReader> lReader(lpReader, ZTPST_Individual, ZTPMT_New);
        ZTCPointer<ZTCBuffer> lBuffer = bufferOf("as before");
        const ZTCBuffer* const lpBefore = lBuffer.get();
        try {
            lHelper.read(lReader, lBuffer, 0);
            ADD_FAILURE() << "taken";
        } catch (const ZTCInvalidEx&) {
            EXPECT_TRUE(lrRow.mIsInvalid);
        } catch (const ZTCClibEx& lrException) {
            EXPECT_FALSE(lrRow.mIsInvalid);
            EXPECT_EQ(lrException.getCode(), 77U);
        }
        EXPECT_EQ(lpReader->mAt, lrRow.mRead);
        EXPECT_EQ(lBuffer.get(), lpBefore);
        EXPECT_EQ(bytesOf(lBuffer), "as before");
    }
}
