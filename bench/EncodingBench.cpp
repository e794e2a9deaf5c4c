// Encoding what a large fetch holds, against a bare copy of the same bytes.
#include <memory>

#include "Bench.h"
#include "DateTime.h"
#include "EncodableStream.h"
#include "ScopeData.h"

namespace {

constexpr unsigned int sRecords = 65000;

// A record as a fetch encodes it: occurrences, two times, scope data.
struct Record {
    Record(const ZTCPointer<ZTCScopeEvent>& acrEvent, const unsigned char* apBlock, unsigned int aLength)
        : mData(acrEvent, apBlock, aLength, 4096) {
        mFirst.__set(".");
        mLast = mFirst;
    }

    void encode(ZTCEncodableOutStream& arStream) const {
        unsigned char* lpAt = arStream.extend(4 + 2 * ZTCDateTime::EncodedSize + mData.getSize());
        lpAt = ztwire::put(lpAt, mOccurrences);
        lpAt = mFirst.encode(lpAt);
        lpAt = mLast.encode(lpAt);
        mData.encode(lpAt);
    }

    unsigned int mOccurrences = 1;
    ZTCDateTime mFirst;
    ZTCDateTime mLast;
    ZTCScopeData mData;
};

const std::vector<std::unique_ptr<Record>>& records() {
    static const auto& srRecords = *[] {
        auto* const lpRecords = new std::vector<std::unique_ptr<Record>>;
        const unsigned char lBlock[20] = {1};
        const ZTCPointer<ZTCScopeEvent> lEvent(
            makePointer<ZTCScopeEvent>(static_cast<unsigned char>(1), static_cast<unsigned char>(1)));
        for (unsigned int lAt = 0; lAt < sRecords; ++lAt) {
            lpRecords->push_back(std::make_unique<Record>(lEvent, lBlock, sizeof lBlock));
        }
        return lpRecords;
    }();
    return srRecords;
}

// Where a response begins.
constexpr unsigned int sInitialSize = 1024;

void copyBytes(benchmark::State& arState) {
    ZTCBufferExpOutStream lStream(sInitialSize);
    for (const auto& lrRecord : records()) {
        lrRecord->encode(lStream);
    }
    const ZTCBuffer& lrBytes = *lStream.getBuffer();
    std::vector<unsigned char> lCopy(lrBytes.getLength());
    for (auto lStep : arState) {
        memcpy(lCopy.data(), lrBytes.getBytes(), lrBytes.getLength());
        benchmark::ClobberMemory();
    }
    arState.counters["each"] = sRecords;
    arState.counters["bytes a record"] = lrBytes.getLength() / sRecords;
}
BENCHMARK(copyBytes)->Name("encoding/memcpy of the bytes, the floor")->Repetitions(5);

void encodeIntoWarmBuffer(benchmark::State& arState) {
    ZTCBufferExpOutStream lStream(sInitialSize);
    for (auto lStep : arState) {
        ZTCPointer<ZTCBuffer> lBuffer(lStream.getBuffer());
        lBuffer->clear();
        for (const auto& lrRecord : records()) {
            lrRecord->encode(lStream);
        }
        benchmark::ClobberMemory();
    }
    arState.counters["each"] = sRecords;
}
BENCHMARK(encodeIntoWarmBuffer)->Name("encoding/65000 records")->Repetitions(5);

void encodeFromNothing(benchmark::State& arState) {
    for (auto lStep : arState) {
        ZTCBufferExpOutStream lStream(sInitialSize);
        for (const auto& lrRecord : records()) {
            lrRecord->encode(lStream);
        }
        benchmark::ClobberMemory();
    }
    arState.counters["each"] = sRecords;
}
BENCHMARK(encodeFromNothing)->Name("encoding/65000 records, buffer grown from 1 KiB")->Repetitions(5);

}  // namespace
