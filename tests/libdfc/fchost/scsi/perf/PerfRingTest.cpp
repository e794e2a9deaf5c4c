#include <linux/perf_event.h>

#include <cstring>

#include "PerfRing.h"
#include "TestSupport.h"

namespace {

constexpr std::size_t sSize = 256;

// What the kernel would write: the type, the size, and 32-bit words behind it.
std::string recordOf(std::uint32_t aType, const std::vector<std::uint32_t>& acrWords, std::size_t aSize = 0) {
    perf_event_header lHeader{};
    lHeader.type = aType;
    lHeader.size = static_cast<std::uint16_t>(aSize != 0 ? aSize : sizeof lHeader + 4 * acrWords.size());
    std::string lBytes(reinterpret_cast<const char*>(&lHeader), sizeof lHeader);
    return lBytes.append(reinterpret_cast<const char*>(acrWords.data()), 4 * acrWords.size());
}

struct Ring {
    explicit Ring(std::uint64_t aStart) { mControl.data_head = mControl.data_tail = aStart; }

    void put(const std::string& acrBytes) {
        for (const char lByte : acrBytes) {
            mData[mControl.data_head++ % sSize] = static_cast<unsigned char>(lByte);
        }
    }

    // The samples' bytes, and what was lost.
    std::string read() {
        std::ostringstream lText;
        const auto lTake = [&](const unsigned char* apSample, std::size_t aSize) {
            std::for_each(apSample, apSample + aSize, [&](unsigned char aByte) { lText << +aByte << "."; });
            lText << " ";
        };
        ZTSPerfLosses lLosses;
        EXPECT_TRUE(mRing.read(lTake, lLosses));
        EXPECT_FALSE(mRing.read(lTake, lLosses)) << "all is given back";
        lText << "told " << lLosses.mTold << " malformed " << lLosses.mMalformed;
        return lText.str();
    }

    perf_event_mmap_page mControl{};
    std::unique_ptr<unsigned char[]> mData{new unsigned char[sSize]{}};
    ZTCPerfRing mRing{&mControl, mData.get(), sSize};
};

TEST(PerfRing, GivesSamplesAndLossesWhereverTheyWrap) {
    const std::string lSample = recordOf(PERF_RECORD_SAMPLE, {4, 0x04030201});
    const std::string lLost = recordOf(PERF_RECORD_LOST, {9, 0, 5, 0});
    const std::string lOther = recordOf(PERF_RECORD_THROTTLE, {1, 2, 3, 4, 5, 6});
    const std::string lEmpty = recordOf(PERF_RECORD_SAMPLE, {0});
    for (std::uint64_t lStart = UINT64_MAX - sSize; lStart != sSize; ++lStart) {
        Ring lRing(lStart);
        lRing.put(lSample + lLost + lOther + lSample + lEmpty);
        ASSERT_EQ(lRing.read(), "1.2.3.4. 1.2.3.4.  told 5 malformed 0") << lStart;
        lRing.put(recordOf(PERF_RECORD_SAMPLE, std::vector<std::uint32_t>(62, 244)));
        EXPECT_EQ(countIn(lRing.read(), "244.0.0.0."), 61U) << lStart << ", full";
    }
}

TEST(PerfRing, CountsWhatIsNotWhatItSays) {
    const std::string lGood = recordOf(PERF_RECORD_SAMPLE, {1, 7});
    const struct {
        std::string mBytes, mRead;
    } lLies[] = {
        // A record of a size that can be: the next one is read.
        {recordOf(PERF_RECORD_SAMPLE, {5, 7}) + lGood, "7. told 0 malformed 1"},
        {recordOf(PERF_RECORD_SAMPLE, {UINT32_MAX, 7}) + lGood, "7. told 0 malformed 1"},
        {recordOf(PERF_RECORD_SAMPLE, {}) + lGood, "7. told 0 malformed 1"},
        {recordOf(PERF_RECORD_LOST, {9, 0, 5}) + lGood, "7. told 0 malformed 1"},
        {recordOf(PERF_RECORD_LOST, {}) + lGood, "7. told 0 malformed 1"},
        // Not: all behind it is one.
        {lGood + recordOf(PERF_RECORD_SAMPLE, {1, 7}, 7) + lGood, "7. told 0 malformed 1"},
        {lGood + recordOf(PERF_RECORD_SAMPLE, {1, 7}, 33) + lGood, "7. told 0 malformed 1"},
        {lGood + recordOf(PERF_RECORD_SAMPLE, {1, 7}, UINT16_MAX) + lGood, "7. told 0 malformed 1"},
        {lGood + lGood.substr(0, 7), "7. told 0 malformed 1"},
        {lGood + std::string(8, '\0'), "7. told 0 malformed 1"},
        {std::string(sSize + 8, '\1'), "told 0 malformed 1"},
    };
    for (const auto& lrLie : lLies) {
        Ring lRing(sSize - 20);
        lRing.put(lrLie.mBytes);
        EXPECT_EQ(lRing.read(), lrLie.mRead) << &lrLie - lLies;
    }
    Ring lRing(0);
    lRing.mControl.data_tail = 8;  // a head behind the tail
    EXPECT_EQ(lRing.read(), "told 0 malformed 1");
}

}  // namespace
