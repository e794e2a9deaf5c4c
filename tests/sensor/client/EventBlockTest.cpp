// What a sensor reads in the blocks of the kinds of events.
#include "EventBlock.h"
#include "ScopeAgentEventFacts.h"
#include "TestFetch.h"

namespace {

template <class Items, class Text>
std::string listOf(const Items& acrItems, const Text& acrText, const char* apBetween = ",") {
    std::string lText;
    for (const auto& lrItem : acrItems) {
        lText += (lText.empty() ? "" : apBetween) + acrText(lrItem);
    }
    return lText;
}

std::string textOf(const ZTEventGroup& acrFields);

std::string textOf(const ZTEventValue& acrValue) {
    const auto lNumber = [](std::uint32_t aItem) { return std::to_string(aItem); };
    const auto lGroup = [](const ZTEventGroup& acrItem) { return "{" + textOf(acrItem) + "}"; };
    return acrValue.index() == 0   ? "null"
           : acrValue.index() == 1 ? lNumber(std::get<1>(acrValue))
           : acrValue.index() == 2 ? std::get<2>(acrValue).toText()
           : acrValue.index() == 3 ? "'" + std::get<3>(acrValue) + "'"
           : acrValue.index() == 4 ? "[" + listOf(std::get<4>(acrValue), lNumber) + "]"
                                   : "[" + listOf(std::get<5>(acrValue), lGroup) + "]";
}

std::string textOf(const ZTEventGroup& acrFields) {
    const auto lField = [](const ZTSEventField& acrField) {
        return std::string(acrField.mpName) + "=" + textOf(acrField.mValue);
    };
    return listOf(acrFields, lField, " ");
}

#define ONE "01000000 "
#define NAME ONE "5006016000000a0b"
#define NAME_TEXT "remote_port_name=50:06:01:60:00:00:0a:0b"
#define ZEROS_30 "000000000000000000000000000000000000000000000000000000000000"

// Each sort of field; the kinds that are put together from the same ones are in the round trip of every kind.
const struct {
    std::uint8_t mCategory;
    std::uint8_t mSubcategory;
    const char* mpKind;
    const char* mpBlock;
    const char* mpText;
} sRows[] = {
    {1, 1, "plogi", NAME "1112131415161718", NAME_TEXT " second_name=11:12:13:14:15:16:17:18"},
    {1, 8, "ls_rjt", NAME "03000000 05000000 00000000 09000000 29000000",
     NAME_TEXT
     " rejected_command=3 rejected_command_name='PLOGI' rejections=["
     "{reason=5 reason_name='logical busy' explanation=0 explanation_name='no additional explanation'},"
     "{reason=9 reason_name='unable to perform command request' explanation=41 "
     "explanation_name='insufficient resources to support login'}]"},
    {1, 32, "rscn", ONE "030201fe", "address_format='domain' port_id='010203'"},
    {2, 4, "fcp_read_check_error", NAME "28000000 04030201 00020000 ffffffff",
     NAME_TEXT " operation_code=40 operation_name='READ(10)' lun=16909060 residuals=[512,4294967295]"},
    {4, 4, "check_condition",
     NAME "06000000 04290000 00010000 01" ZEROS_30 "80 00010000 00" ZEROS_30 "01 00010000 00 81 " ZEROS_30,
     NAME_TEXT " sense_key=6 sense_key_name='unit attention' asc=41 ascq=4 luns=[0,255] "
               "operation_codes=[248] queue_tags=[8,15]"},
    // Numbers without names, sets of another size, and bytes that make no whole value.
    {8, 2, "link", ONE "ffff", ""},
    {1, 8, "ls_rjt", NAME "51525354 05000100 ffffffff aabbcc",
     NAME_TEXT " rejected_command=1414746705 rejected_command_name=null rejections=["
               "{reason=65541 reason_name=null explanation=4294967295 explanation_name=null}]"},
    {4, 4, "check_condition",
     NAME "0c000000 ffffffff 00010000 01" ZEROS_30 "00 00020000 ff" ZEROS_30 "ff 00010000 01" ZEROS_30 "00",
     NAME_TEXT
     " sense_key=12 sense_key_name=null asc=255 ascq=255 luns=[0] operation_codes=[] queue_tags=[]"},
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
            const std::vector<std::uint8_t> lBytes(acrBlock.begin(), acrBlock.end());
            return decodeEventBlock(lrRow.mCategory, lrRow.mSubcategory, lBytes);
        };
        SCOPED_TRACE(lrRow.mpKind);
        EXPECT_STREQ(findEventKind(lrRow.mCategory, lrRow.mSubcategory), lrRow.mpKind);
        const std::string lBlock = bytesOf(lrRow.mpBlock);
        const auto lWhole = lDecode(lBlock);
        ASSERT_TRUE(lWhole);
        EXPECT_EQ(textOf(*lWhole), lrRow.mpText);
        for (std::size_t lEnd = 0; lEnd < lBlock.size(); ++lEnd) {
            const auto lCut = lDecode(lBlock.substr(0, lEnd));
            ASSERT_EQ(lCut ? lCut->size() : 99, lEnd >= 4 ? lWhole->size() : 99) << lEnd;
            for (std::size_t lAt = 0; lCut && lAt < lCut->size(); ++lAt) {
                // Nothing, the whole value, or the front of its list.
                EXPECT_STREQ((*lCut)[lAt].mpName, (*lWhole)[lAt].mpName);
                const std::string lValue = textOf((*lCut)[lAt].mValue);
                const std::string lFull = textOf((*lWhole)[lAt].mValue);
                EXPECT_TRUE(lValue == lFull || (lFull[0] != '[' && lValue == "null") ||
                            (lFull[0] == '[' && lFull.starts_with(lValue.substr(0, lValue.size() - 1))))
                    << lValue << " of " << lEnd << " bytes";
            }
        }
        EXPECT_FALSE(lDecode('\2' + lBlock.substr(1)));
        EXPECT_FALSE(lDecode(lBlock.substr(0, 3) + '\1' + lBlock.substr(4)));
    }
}

}  // namespace
