#include <gtest/gtest.h>

#include <atomic>
#include <cstring>

#include "BufferManager.h"
#include "EncodableStream.h"
#include "FailingAllocator.h"
#include "IdTable.h"
#include "MultiType.h"
#include "QueueTable.h"
#include "Version.h"

namespace {

constexpr char sLong[] = "a text that is longer than what a string holds in itself";

void require(bool aCondition, const char* apText) {
    if (!aCondition) {
        throw ZTCInvalidEx(apText, 0);
    }
}

// Does the work; when memory fails it, what was there before has to be as it was.
template <class Work, class IsAsBefore>
void change(Work aWork, IsAsBefore aIsAsBefore) {
    try {
        aWork();
    } catch (const ZTCNoMemoryEx&) {
        require(aIsAsBefore(), "a change that failed left its mark");
        throw;
    }
}

void useStrings() {
    ZTCString lOne(sLong);
    const ZTCString lSum = lOne + sLong;
    const ZTCString lCopy(lSum);
    change([&] { lOne = lCopy; }, [&] { return strcmp(lOne.get(), sLong) == 0; });
    require(lOne == lSum, "the texts differ");
    require(strcmp(ZTCVersion(2, 3, 0, 5).getText().get(), "2.3.0.5") == 0, "not the version");
    const ZTCMultiType lValue(lOne);
    const auto lShared = makePointer<ZTCMultiType>(lValue);
    require(lShared->getText() == lOne && ZTCMultiType(7U).getNumber() == 7, "not the value");
}

void useBuffers() {
    ZTCBuffer lBuffer(2);
    memcpy(lBuffer.extend(2), "ab", 2);
    const auto lIsAsBefore = [&] {
        return lBuffer.getLength() == 2 && memcmp(lBuffer.getBytes(), "ab", 2) == 0;
    };
    change([&] { lBuffer.extend(1000); }, lIsAsBefore);
    lBuffer.setLength(2);
    change([&] { lBuffer.setLength(5000); }, lIsAsBefore);

    ZTCBufferManager lManager;
    ZTCPointer<ZTCBuffer> lFirst;
    change([&] { lManager.get(10, lFirst); }, [&] { return !(lFirst != nullptr); });
    lManager.reuse(lFirst);
    lManager.get(5, lFirst);
    lManager.get(1000, lFirst);
}

void useStreams() {
    ZTCBufferExpOutStream lOut(0);
    lOut << 1U;
    change([&] { lOut << ZTCString(sLong); }, [&] { return lOut.getBuffer()->getLength() == 4; });
}

void useTables() {
    ZTCQueueTable lQueues;
    const unsigned int lId = lQueues.add();
    lQueues.add();
    const auto lElement = makePointer<ZTCQueueable>();
    lQueues.put(lId, lElement, ZTCQueueTable::End::Back);
    change([&] { lQueues.put(lId, lElement, ZTCQueueTable::End::Front); },
           [&] { return lQueues.size(lId) == 1; });
    lQueues.take(lId, ZTCQueueTable::End::Front);
    ZTCIdTable<ZTCQueueable> lTable;
    lTable.append(lElement);
    change([&] { lTable.append(lElement); }, [&] { return lTable.numberOfElements() == 1; });
}

}  // namespace

TEST(OutOfMemoryTest, IsAnExceptionWhereverItComesAndLeavesNothingBehind) {
    const std::pair<const char*, void (*)()> lScenarios[] = {
        {"strings", useStrings}, {"buffers", useBuffers}, {"streams", useStreams}, {"tables", useTables}};
    for (const auto& [lpName, lpUse] : lScenarios) {
        bool lHasFailed = true;
        unsigned int lFailing = 0;
        while (lHasFailed) {
            char lOutcome[ZTCException::MaxText + 1] = "";
            FailingAllocator lAllocator(++lFailing);
            try {
                lpUse();
            } catch (const ZTCNoMemoryEx&) {
                lHasFailed = false;
            } catch (const ZTCException& lrException) {
                strcpy(lOutcome, lrException.what());
            } catch (...) {
                strcpy(lOutcome, "an exception of another hierarchy");
            }
            lAllocator.stop();
            SCOPED_TRACE(testing::Message() << lpName << ", allocation " << lFailing);
            EXPECT_STREQ(lOutcome, "");
            EXPECT_TRUE(lHasFailed || lAllocator.hasFailed()) << "no memory, though there was";
            // An object whose counter could not be had stays the caller's; all else is given back.
            EXPECT_EQ(lAllocator.getLiveBlocks() != 0, lAllocator.hasFailedForCounter());
            EXPECT_EQ(lAllocator.getWronglyFreed(), 0U);
            lHasFailed = lAllocator.hasFailed();
        }
        EXPECT_GT(lFailing, 2U) << lpName << " used hardly any memory";
    }
}
