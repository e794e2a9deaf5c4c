// What sense codes are in words, by themselves and in a record's line.
#include <gtest/gtest.h>

#include "RecordText.h"
#include "SenseText.h"
#include "TestFetch.h"

namespace {

TEST(SenseText, IsInTheWordsOfTheStandards) {
    const struct {
        std::uint32_t mKey;
        std::uint8_t mCode, mQualifier;
        const char* mpText;
        const char* mpShown;
    } lRows[] = {
        {0x2, 0x04, 0x0a, "not ready: asymmetric access state transition",
         "not ready: asymmetric access state transition (sense 2/04/0a)"},
        {0x6, 0x2a, 0x06, "unit attention: asymmetric access state changed",
         "unit attention: asymmetric access state changed (sense 6/2a/06)"},
        {0x6, 0x29, 0x07, "unit attention: I_T nexus loss occurred",
         "unit attention: I_T nexus loss occurred (sense 6/29/07)"},
        // What repeats its key does so under that key alone.
        {0xb, 0x04, 0x0c, "aborted command: logical unit not accessible, target port in unavailable state",
         "aborted command: logical unit not accessible, target port in unavailable state (sense b/04/0c)"},
        {0xb, 0x4e, 0x00, "aborted command: overlapped commands attempted",
         "aborted command: overlapped commands attempted (sense b/4e/00)"},
        // A maker's own code, one that nobody has given, and keys without a name.
        {0x4, 0x80, 0x12, "", "hardware error (sense 4/80/12)"},
        {0x2, 0x04, 0xff, "", "not ready (sense 2/04/ff)"},
        {0xc, 0xff, 0xff, "", "sense c/ff/ff"},
        {0x12345678, 0x29, 0x01, "power on occurred", "power on occurred (sense 12345678/29/01)"},
    };
    for (const auto& lrRow : lRows) {
        EXPECT_EQ(senseText(lrRow.mKey, lrRow.mCode, lrRow.mQualifier), lrRow.mpText);
        ZTSSensorRecord lRecord{1, {}, {}, 4, 4, {}, {1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}};
        for (const unsigned int lShift : {0U, 8U, 16U, 24U}) {
            lRecord.mData.push_back(static_cast<std::uint8_t>(lrRow.mKey >> lShift));
        }
        lRecord.mData.insert(lRecord.mData.end(), {lrRow.mQualifier, lrRow.mCode, 0, 0});
        const std::string lLists = ", luns none, operation codes none, queue tags none";
        EXPECT_EQ(detailText(lRecord, fieldsOf(lRecord)), lrRow.mpShown + lLists);
        lRecord.mData.pop_back();
        EXPECT_EQ(detailText(lRecord, fieldsOf(lRecord)), "sense not told" + lLists);
    }
}

}  // namespace
