// Events on their way from the vendor library to the sensor: the record of each kind, and what is turned
// away. What folds into one record, ModelTest says.
#include "SimClient.h"

namespace {

// A registered target: its node name, its port name, its address.
#define NODE "20000025b501000a"
#define PORT "5006016000000a0b"
constexpr char sTarget[] = "03 00000001" NODE PORT "00010203";

#define ZEROS_6 "000000000000"
#define ZEROS_8 "0000000000000000"
#define ZEROS_24 ZEROS_8 ZEROS_8 ZEROS_8
#define ZEROS_30 ZEROS_24 ZEROS_6

struct Golden {
    const char* mpLine;
    std::vector<const char*> mRecords;
    const char* mpNotice;
};

const Golden sGoldens[] = {
    {"plogi from=" PORT " to=1112131415161718",
     {"00000001 TT 01 01 01 " NODE PORT " 00000014 01000000 " PORT " 1112131415161718"},
     "-N- Processing PLOGI event Cat=1 SubCat=1"},
    {"prlo from=2122232425262728",
     {"00000001 TT 01 02 00 0000000c 01000000 2122232425262728"},
     "-N- Processing PRLO event Cat=1 SubCat=2"},
    {"adisc from=3132333435363738 to=" PORT,
     {"00000001 TT 01 04 00 00000014 01000000 3132333435363738 " PORT},
     "-N- Processing ADISC event Cat=1 SubCat=4"},
    {"ls-rjt from=4142434445464748 command=0x51525354 reason=0x55565758 explanation=0x595a5b5c",
     {"00000001 TT 01 08 00 00000018 01000000 4142434445464748 54535251 58575655 5c5b5a59"},
     "-N- Processing LsRjt Event Category=1 SubCat=8"},
    {"logo from=" NODE " to=6162636465666768",
     {"00000001 TT 01 10 00 00000014 01000000 " NODE " 6162636465666768"},
     "-N- Processing LOGO event Cat=1 SubCat=16"},
    {"rscn pages=0x00010203,0x01010203,0x02010203,0x03010203,0xfc010203,0x00010204",
     {"00000001 TT 01 20 01 " NODE PORT " 00000008 01000000 03020100",
      "00000001 TT 01 20 00 00000008 01000000 03020101", "00000001 TT 01 20 00 00000008 01000000 03020102",
      "00000001 TT 01 20 00 00000008 01000000 03020103",
      "00000001 TT 01 20 01 " NODE PORT " 00000008 01000000 030201fc",
      "00000001 TT 01 20 00 00000008 01000000 04020100"},
     "-N- Processing Rscn Event Cat=1 SubCat=32"},
    {"fabric-busy",
     {"00000001 TT 02 01 00 00000004 01000000"},
     "-N- Processing Fabric BUSY event Cat=2 SubCat=1"},
    {"port-busy port=7172737475767778",
     {"00000001 TT 02 02 00 0000000c 01000000 7172737475767778"},
     "-N- Processing PORTBUSY event Cat=2 SubCat=2"},
    {"fcp-read-check-error port=8182838485868788 lun=0x91929394 command=0x95969798 residual=0x999a9b9c",
     {"00000001 TT 02 04 00 00000018 01000000 8182838485868788 98979695 94939291 9c9b9a99"},
     "-N- Processing FCPRDCHKERR event Cat=2 SubCat=4"},
    {"queue-full port=a1a2a3a4a5a6a7a8 lun=37",
     {"00000001 TT 04 01 00 00000030 01000000 a1a2a3a4a5a6a7a8 00010000 00000000 20 000000" ZEROS_24},
     "-N- Processing QFULL event Cat=4 SubCat=1"},
    {"device-busy port=b1b2b3b4b5b6b7b8 lun=200",
     {"00000001 TT 04 02 00 00000030 01000000 b1b2b3b4b5b6b7b8 00010000" ZEROS_24 "00 01" ZEROS_6},
     "-N- Processing DEVBSY event Cat=4 SubCat=2"},
    {"check-condition port=c1c2c3c4c5c6c7c8 lun=9 command=0x2a sense=6/29/04 queue-tag=255",
     {"00000001 TT 04 04 00 00000080 01000000 c1c2c3c4c5c6c7c8 06000000 04290000"
      "00010000 00 02" ZEROS_30 "00010000 0000000000 04 0000" ZEROS_24 "00010000" ZEROS_30 "00 80"},
     nullptr},
    {"lun-reset port=d1d2d3d4d5d6d7d8 lun=0xd9dadbdc",
     {"00000001 TT 04 08 00 00000010 01000000 d1d2d3d4d5d6d7d8 dcdbdad9"},
     "-N- Processing LUN RESET Cat=4 SubCat=8"},
    {"target-reset port=e1e2e3e4e5e6e7e8 lun=0xe9eaebec",
     {"00000001 TT 04 10 00 00000010 01000000 e1e2e3e4e5e6e7e8 ecebeae9"},
     "-N- Processing TGT RESET Cat=4 SubCat=16"},
    {"bus-reset",
     {"00000001 TT 04 20 00 00000004 01000000"},
     "-N- Processing BUSRESET event Cat=4 SubCat=32"},
    {"queue-depth-change port=f1f2f3f4f5f6f7f8 lun=0xf9fafbfc old=0x01020304 new=0x05060708",
     {"00000001 TT 04 40 00 00000014 01000000 f1f2f3f4f5f6f7f8 fcfbfaf9 08070605"},
     "-N- Processing VARQDEPTH event Cat=4 SubCat=64"},
    {"port-interrupt-error",
     {"00000001 TT 08 01 00 00000004 01000000"},
     "-N- Processing PORTINTERR event Cat=8 SubCat=1"},
    {"link", {"00000001 TT 08 02 00 00000004 01000000"}, "-N- Processing LINK event Cat=8 SubCat=2"},
    {"temperature", {"00000001 TT 08 04 00 00000004 01000000"}, "-N- Processing TEMP event Cat=8 SubCat=4"},
    {"adapter-arrival",
     {"00000001 TT 10 01 00 00000004 01000000"},
     "-N- Processing ADAPTER ARRIVAL Event Cat=16 SubCat=1"},
};

std::string textOf(const std::vector<ZTSTestRecord>& acrRecords) {
    std::string lText;
    for (const ZTSTestRecord& lrRecord : acrRecords) {
        lText += lrRecord.mDigits + "\n";
    }
    return lText;
}

TEST(Events, AreRecordedByteForByte) {
    constexpr char lLabel[] = "20:00:00:25:b5:01:00:0%.10:00:00:25:b5:01:00:0%";
    ZTSTestStand lStand;
    EXPECT_EQ(lStand.ask(bytesOf(sTarget)), lStand.mSuccess);
    lStand.start();
    std::string lLines;
    std::string lAll;
    std::string lNotices;
    std::size_t lRow = 0;
    for (const Golden& lrGolden : sGoldens) {
        SCOPED_TRACE(lrGolden.mpLine);
        const std::size_t lBoard = ++lRow % 2;
        std::string lExpected;
        for (const char* const lpRecord : lrGolden.mRecords) {
            lExpected += withoutBlanks(lpRecord) + "\n";
            lNotices += lrGolden.mpNotice != nullptr ? std::string(lrGolden.mpNotice) + "\n" : "";
        }
        lStand.mSim.play(std::string(lrGolden.mpLine) + " board=" + std::to_string(lBoard));
        const auto lLists = lStand.fetch();
        ASSERT_EQ(lLists.size(), 2U);
        for (const std::size_t lAt : {0U, 1U}) {
            std::string lText = lLabel;
            std::replace(lText.begin(), lText.end(), '%', lAt == 0 ? '0' : '1');
            EXPECT_EQ(lLists[lAt].mLabel, lText);
            EXPECT_EQ(textOf(lLists[lAt].mRecords), lAt == lBoard ? lExpected : "");
        }
        lLines += std::string(lrGolden.mpLine) + "\n";
        lAll += lExpected;
    }
    lStand.mSim.play(lLines);
    EXPECT_EQ(textOf(lStand.fetch()[0].mRecords), lAll);
    lStand.mAgent.stop();

    const std::string lLog = lStand.mAgent.getLog();
    EXPECT_EQ(recordsWith(lLog, {"Processing "}), lNotices + lNotices);
    EXPECT_EQ(countIn(lLog, "Unknown Category = 16 SubCategory = 1, ignored\n"), 2U);
    EXPECT_EQ(countIn(lLog, "Unknown "), 2U);
    EXPECT_EQ(countIn(lLog, "Events lost"), 0U);
}

// The records of a fetch, as occurrences#length or occurrences=data; a slash stands between the boards.
std::string shapeOf(const std::vector<ZTSTestList>& acrLists, bool aWithData) {
    std::string lText;
    for (const ZTSTestList& lrList : acrLists) {
        lText += &lrList != acrLists.data() ? "/" : "";
        for (const ZTSTestRecord& lrRecord : lrList.mRecords) {
            lText += (&lrRecord != lrList.mRecords.data() ? " " : "") + std::to_string(lrRecord.mOccurrences);
            lText += aWithData ? "=" + digitsOf(lrRecord.mData) : "#" + std::to_string(lrRecord.mData.size());
        }
    }
    return lText;
}

// The kinds with a payload: how much of it there must be, and what is said of less.
constexpr struct {
    const char* mpId;
    std::size_t mMinimum;
    const char* mpTooShort;
    const char* mpShape;
} sMinima[] = {
    {"category=1 subcategory=1", 20, "Not enough data in ELS PLOGI Event 20 19", "1#20/"},
    {"category=1 subcategory=2", 12, "Not enough data in ELS PRLO Event 12 11", "1#12/"},
    {"category=1 subcategory=4", 20, "Not enough data in ELS ADISC Event 20 19", "1#20/"},
    {"category=1 subcategory=8", 24, "Not enough data in ELS LSRJT Event 24 23", "1#24/"},
    {"category=1 subcategory=16", 20, "Not enough data in ELS LOGO Event 20 19", "1#20/"},
    {"category=2 subcategory=2", 12, "Not enough event data in FABRIC PORT BUSY event12 11", "1#12/"},
    {"category=2 subcategory=4", 24, "Not enough data in FCPRDCHECKERR event 24 23", "1#24/"},
    {"category=4 subcategory=1", 16, "Not enough data in SCSI Event 16 15", "1#48/"},
    {"category=4 subcategory=2", 16, "Not enough data in SCSI Event 16 15", "1#48/"},
    {"category=4 subcategory=4", 32, "Not enough data in SCSI CHECKCOND Event 32 31", "1#128/"},
    {"category=4 subcategory=8", 16, "Not enough data in SCSI TGTRESET Event 16 15", "1#16/"},
    {"category=4 subcategory=16", 16, "Not enough data in SCSI TGTRESET Event 16 15", "1#16/"},
    {"category=4 subcategory=64", 24, "Not enough data in SCSI VARQUEDEPTH Event 24 23", "1#20/"},
};

struct Case {
    std::string mLine;
    const char* mpShape;
    std::string mLog;  ///< tags and texts
    const char* mpLost = nullptr;
};

#define LOST(Boards, Short, Kinds, Malformed)                                                      \
    "-N- Events lost since the last fetch: 0 at the limit, " #Boards " of unknown boards, " #Short \
    " too short, " #Kinds " of unknown kinds, 0 for want of memory, " #Malformed " malformed\n"
constexpr char sOfUnknownBoard[] = LOST(1, 0, 0, 0);
constexpr char sTooShort[] = LOST(0, 1, 0, 0);
constexpr char sOfUnknownKind[] = LOST(0, 0, 1, 0);
constexpr char sMalformed[] = LOST(0, 0, 0, 1);

#define PLOGI_OF "raw category=1 subcategory=1 bytes=0000000000000000000000000000000000000000 total-length="
#define CLAIMS(Length) \
    "-W- An RSCN of board 0 claims 65535 bytes and has " #Length ": the pages that it has are taken\n"

const Case sCases[] = {
    {"raw category=1 subcategory=1 no-descriptor", "/", "-W- Not enough data in ELS PLOGI Event 20 0\n",
     sTooShort},
    {"raw category=1 subcategory=3", "/", "-N- Unknown ELS Event subcategory = 3, ignored\n", sOfUnknownKind},
    {"raw category=2 subcategory=3", "/", "-N- Unknown Fabric Event subcategory=3, ignored\n",
     sOfUnknownKind},
    {"raw category=4 subcategory=128", "/", "-N- Unknown Scsi Event subcategory = 128, ignored\n",
     sOfUnknownKind},
    {"raw category=8 subcategory=8", "/", "-N- Unknown Board Evt catgory=8 subcatgory=8 ignored\n",
     sOfUnknownKind},
    {"raw category=16 subcategory=2", "/",
     "-N- Unknown Adapter Evt catgory=16 subcatgory=2 ignored\n"
     "-N- Unknown Category = 16 SubCategory = 2, ignored\n",
     sOfUnknownKind},
    {"raw category=0 subcategory=2", "/", "-N- Unknown Category = 0 SubCategory = 2, ignored\n",
     sOfUnknownKind},
    {"raw category=255 subcategory=255", "/", "-N- Unknown Category = 255 SubCategory = 255, ignored\n",
     sOfUnknownKind},
    // Of the codes only the low byte is read.
    {"raw category=259 subcategory=257", "/", "-N- Unknown Category = 3 SubCategory = 1, ignored\n",
     sOfUnknownKind},
    {"raw category=272 subcategory=257", "1#4/", "-N- Unknown Category = 16 SubCategory = 1, ignored\n"},
    {"plogi board=77", "/", "-N- Ignoring the DfcLink event callback as boardid 77 is bad\n",
     sOfUnknownBoard},
    {"link board=77", "/", "-N- Ignoring the DfcLink event callback as boardid 77 is bad\n", sOfUnknownBoard},
    {"rscn board=2", "/", "-N- Ignoring the DfcRscn event callback as boardid 2 is bad\n", sOfUnknownBoard},
    {"temperature board=4294967295", "/", "-N- Ignoring the DfcTemp event callback as boardid -1 is bad\n",
     sOfUnknownBoard},
    {PLOGI_OF "19", "/",
     "-W- Event (1, 1) of board 0 is dropped: its record of 19 bytes claims a payload that cannot be\n",
     sMalformed},
    {"raw mask=2 bytes=61040008000102", "/", "-W- Not enough data in RSCN Event 8 7\n", sTooShort},
    {"raw mask=2 bytes=6104000000010203", "/", "-N- No Payload in RSCN Event\n"},
    {"raw mask=2 bytes=6104ffff00010203000405", "1=0100000003020100/", CLAIMS(11)},
    {"raw category=1 subcategory=32 bytes=6104ffff0001020300040506", "1=0100000003020100 1=0100000006050400/",
     CLAIMS(12)},
};

TEST(Events, WhatIsTurnedAwayIsToldOfAndCounted) {
    std::vector<Case> lCases(std::begin(sCases), std::end(sCases));
    for (const auto& lrMinimum : sMinima) {
        const std::string lLine = std::string("raw ") + lrMinimum.mpId + " bytes=";
        const std::string lWarning = std::string("-W- ") + lrMinimum.mpTooShort + "\n";
        lCases.push_back({lLine + std::string(2 * lrMinimum.mMinimum - 2, '0'), "/", lWarning, sTooShort});
        lCases.push_back({lLine + std::string(2 * lrMinimum.mMinimum, '0'), lrMinimum.mpShape, ""});
    }
    ZTSTestStand lStand;
    lStand.start();
    std::string lExpected;
    for (const Case& lrCase : lCases) {
        lStand.mSim.play(lrCase.mLine);
        EXPECT_EQ(shapeOf(lStand.fetch(), contains(lrCase.mpShape, "=")), lrCase.mpShape) << lrCase.mLine;
        lExpected += lrCase.mLog + (lrCase.mpLost != nullptr ? lrCase.mpLost : "");
    }
    lStand.mSim.play(
        "link board=77 times=2\nraw category=1 subcategory=1 times=3\nraw category=3 "
        "subcategory=1 times=4\n" PLOGI_OF "1 times=5");
    EXPECT_EQ(shapeOf(lStand.fetch(), false), "/");
    EXPECT_EQ(shapeOf(lStand.fetch(), false), "/");
    lStand.mAgent.stop();

    const std::string lFound = recordsWith(
        lStand.mAgent.getLog(),
        {"Not enough ", "Unknown ", "Ignoring ", " is dropped: ", " claims ", "No Payload ", "Events lost "});
    EXPECT_EQ(lFound.substr(0, lExpected.size()), lExpected);
    EXPECT_TRUE(lFound.ends_with(LOST(2, 3, 4, 5))) << lFound;
}

}  // namespace
