// What a sensor reads in the blocks of the kinds of events, as JSON.
#include <nlohmann/json.hpp>

#include "EventBlock.h"
#include "RecordPrinter.h"
#include "ScopeAgentEventFacts.h"
#include "TestFetch.h"

namespace {

using Json = nlohmann::ordered_json;

#define ONE "01000000 "
#define NAME ONE "5006016000000a0b"
#define NAME_TEXT R"({"remote_port_name":"50:06:01:60:00:00:0a:0b",)"
#define ZEROS_30 "000000000000000000000000000000000000000000000000000000000000"

// Each sort of field as it can be; what a library delivers is in the round trip of every kind.
const struct {
    std::uint8_t mCategory, mSubcategory;
    const char *mpBlock, *mpText;
} sRows[] = {
    {2, 4, NAME "28000000 04030201 00020000 ffffffff",
     NAME_TEXT R"x("operation_code":40,"operation_name":"READ(10)",)x"
               R"("lun":16909060,"residuals":[512,4294967295]})"},
    // Numbers without names, sets of another size, and bytes that make no whole value.
    {8, 2, ONE "ffff", "{}"},
    {1, 8, NAME "51525354 05000100 ffffffff aabbcc",
     NAME_TEXT R"("rejected_command":1414746705,"rejected_command_name":null,"rejections":[)"
               R"({"reason":65541,"reason_name":null,"explanation":4294967295,"explanation_name":null}]})"},
    {4, 4,
     NAME "0c000000 ffffffff 00010000 01" ZEROS_30 "80 00020000 ff" ZEROS_30 "ff 00010000 01" ZEROS_30 "00",
     NAME_TEXT
     R"("sense_key":12,"sense_key_name":null,"asc":255,"ascq":255,"sense_text":null,"luns":[0,255],)"
     R"("operation_codes":[],"queue_tags":[]})"},
};

TEST(SensorEventBlock, KindsAreTheAgents) {
    std::size_t lCount = 0;
    for (unsigned int lKind = 0; lKind < 65536; ++lKind) {
        const auto lCategory = static_cast<std::uint8_t>(lKind >> 8);
        const auto lSubcategory = static_cast<std::uint8_t>(lKind & 255);
        const bool lIsKind = ZTFindScopeEventFacts(lCategory, lSubcategory) != nullptr;
        const std::vector<std::uint8_t> lBlock{1, 0, 0, 0};
        EXPECT_EQ(findEventKind(lCategory, lSubcategory) != nullptr, lIsKind) << lKind;
        EXPECT_EQ(decodeEventBlock(lCategory, lSubcategory, lBlock).has_value(), lIsKind) << lKind;
        lCount += lIsKind ? 1 : 0;
    }
    EXPECT_EQ(listEventKinds().size(), lCount);
}

TEST(SensorEventBlock, SaysWhatTheBlockHoldsAndWhatIsLeftOfOneThatIsCut) {
    for (const auto& lrRow : sRows) {
        const auto lDecode = [&](const std::string& acrBlock) {
            const ZTSSensorRecord lRecord{
                1, {}, {}, lrRow.mCategory, lrRow.mSubcategory, {}, {acrBlock.begin(), acrBlock.end()}};
            std::string lLine;
            const auto lPrinter = makeRecordPrinter(ZTEScopeForm::JsonLines, "", true,
                                                    [&](const std::string& acrText) { lLine += acrText; });
            lPrinter->add({{}, {{{}, {lRecord}}}});
            lPrinter->finish();
            return Json::parse(lLine)["event"];
        };
        const std::string lBlock = bytesOf(lrRow.mpBlock);
        const Json lWhole = lDecode(lBlock);
        EXPECT_EQ(lWhole.dump(), lrRow.mpText);
        for (std::size_t lEnd = 0; lEnd < lBlock.size(); ++lEnd) {
            const Json lCut = lDecode(lBlock.substr(0, lEnd));
            ASSERT_EQ(lCut.is_object() ? lCut.size() : 99, lEnd >= 4 ? lWhole.size() : 99) << lEnd;
            for (const auto& [lrName, lrValue] : lCut.items()) {
                // Nothing, the whole value, or the front of its list.
                const Json& lrFull = lWhole.at(lrName);
                EXPECT_TRUE(
                    lrFull.is_array() && lrValue.is_array()
                        ? std::mismatch(lrValue.begin(), lrValue.end(), lrFull.begin(), lrFull.end()).first ==
                              lrValue.end()
                        : lrValue == lrFull || (lrValue.is_null() && !lrFull.is_array()))
                    << lCut << " of " << lEnd << " bytes";
            }
        }
        EXPECT_TRUE(lDecode('\2' + lBlock.substr(1)).is_null());
        EXPECT_TRUE(lDecode(lBlock.substr(0, 3) + '\1' + lBlock.substr(4)).is_null());
    }
}

}  // namespace
