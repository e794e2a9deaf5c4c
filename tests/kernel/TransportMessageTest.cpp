// The messages of the kernel, and what only claims to be one.
#include <gtest/gtest.h>

#include <memory>
#include <sstream>

#include "KernelBytes.h"
#include "TransportMessage.h"

namespace {

// "host number code word", and what is behind that, of each; and the count of what was left out.
std::string read(const std::string& acrBytes) {
    const auto lpExact = std::make_unique<unsigned char[]>(acrBytes.size());  // a sanitizer sees its end
    std::copy(acrBytes.begin(), acrBytes.end(), lpExact.get());
    std::ostringstream lText;
    lText << std::hex;
    const auto lBad = readTransportMessages(lpExact.get(), acrBytes.size(), [&](const ZTSFcMessage& acrOne) {
        lText << acrOne.mHost << " " << acrOne.mNumber << " " << acrOne.mCode << " ";
        acrOne.getWord() ? lText << *acrOne.getWord() : lText << "-";
        lText << std::string(acrOne.mData.begin(), acrOne.mData.end()).erase(0, 4) << ", ";
    });
    lText << "bad " << lBad;
    return lText.str();
}

TEST(TransportMessage, WholeAndCutShortAtEachByte) {
    EXPECT_EQ(read(fcMessage(0xfffe, 0xfffffffd, ~0U, "\4\3\2\1+5")),
              "fffe fffffffd ffffffff 1020304+5, bad 0");
    const std::string lTwo = fcMessage(1, 2, 3) + fcMessage(4, 5, 6);
    for (std::size_t lSize = 0; lSize <= 112; ++lSize) {
        const std::string lWhole = lSize < 56 ? "" : lSize < 112 ? "1 2 3 0, " : "1 2 3 0, 4 5 6 0, ";
        EXPECT_EQ(read(lTwo.substr(0, lSize)), lWhole + (lSize % 56 == 0 ? "bad 0" : "bad 1")) << lSize;
    }
}

// The lengths of the netlink message, the message and its data; types, version, transport, magic number.
TEST(TransportMessage, HeadersThatLie) {
    const std::string lNext = "4 5 6 0, ";
    const struct {
        std::string mRead;
        std::size_t mAt, mSize;
        std::vector<std::uint32_t> mValues;
    } lLies[] = {{"bad 1", 0, 4, {0, 15, 113, 0xffffffff}},  // nobody knows where the next one begins
                 {lNext + "bad 1", 0, 4, {55}},
                 {"1 2 3 7, bad 0", 0, 4, {112}},
                 {lNext + "bad 1", 22, 2, {0, 35, 39, 41, 0xffff}},
                 {"1 2 3 -, " + lNext + "bad 0", 42, 2, {0, 3}},
                 {lNext + "bad 1", 42, 2, {5, 0xffff}},
                 {lNext + "bad 0", 4, 2, {0, 0x10, 0x12}},
                 {lNext + "bad 0", 20, 2, {0, 0x0101}},
                 {lNext + "bad 1", 16, 1, {0, 2}},
                 {lNext + "bad 0", 17, 1, {0, 2}},
                 {lNext + "bad 1", 18, 2, {0, 0xb2a1}}};
    for (const auto& lrLie : lLies) {
        for (const std::uint32_t lValue : lrLie.mValues) {
            std::string lBytes = fcMessage(1, 2, 3, {"\7\0\0\0", 4}) + fcMessage(4, 5, 6);
            fcPut(lBytes, lrLie.mAt, lValue, lrLie.mSize);
            EXPECT_EQ(read(lBytes), lrLie.mRead) << lrLie.mAt << " " << lValue;
        }
    }
}

}  // namespace
