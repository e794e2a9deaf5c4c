#include <cstring>
#include <regex>

#include "ScsiSample.h"
#include "TestSupport.h"

namespace {

// As the kernel writes them: TYPE NAME, the offset, the size.
std::string fieldsOf(const std::string& acrFields) {
    return std::regex_replace(acrFields, std::regex(" *([^;]*) (\\d+) (\\d+);"),
                              "\tfield:$1;\toffset:$2;\tsize:$3;\tsigned:0;\n");
}

// Of kernel 6.1; of 6.12 with the three behind them.
const std::string sFields =
    "name: scsi_dispatch_cmd_done\nID: 1340\nformat:\n" +
    fieldsOf(
        "unsigned short common_type 0 2; unsigned char common_flags 2 1; unsigned char common_preempt_count 3 1;"
        "int common_pid 4 4; unsigned int host_no 8 4; unsigned int channel 12 4; unsigned int id 16 4;"
        "unsigned int lun 20 4; int result 24 4; unsigned int opcode 28 4; unsigned int cmd_len 32 4;"
        "int driver_tag 36 4; int scheduler_tag 40 4; unsigned int data_sglen 44 4; unsigned int prot_sglen 48 4;"
        "unsigned char prot_op 52 1; __data_loc unsigned char[] cmnd 56 4;");
const std::string sSense = fieldsOf("u8 sense_key 60 1; u8 asc 61 1; u8 ascq 62 1;");
const std::string sEnd = "\nprint fmt: \"host_no=%u\", REC->host_no\n";

// A sample with these numbers from the fifth field on, as many as there are.
std::vector<unsigned char> sampleOf(std::uint32_t aResult, std::size_t aSize = 68, std::uint32_t aId = 1340) {
    const std::uint32_t lNumbers[] = {aId, 77, 3,  1, 2, 0x4001000c, aResult, 0x28,
                                      6,   39, 40, 0, 0, 0,          0x60040, 0x00112903};
    std::vector<unsigned char> lBytes(sizeof lNumbers + 8);
    memcpy(lBytes.data(), lNumbers, sizeof lNumbers);
    const unsigned char lSense[] = {6, 0x29, 3};
    memcpy(&lBytes[60], lSense, sizeof lSense);
    lBytes.resize(aSize);
    lBytes.shrink_to_fit();
    return lBytes;
}

std::string read(const ZTCScsiSample& acrSample, const std::vector<unsigned char>& acrBytes) {
    const auto lFailure = acrSample.read(acrBytes.data(), acrBytes.size());
    if (!lFailure) {
        return "nothing";
    }
    const ZTSScsiKey& lrKey = lFailure->mKey;
    std::ostringstream lText;
    lText << lrKey.mHost << ":" << lrKey.mChannel << ":" << lrKey.mTarget << ":" << std::hex << lrKey.mLun
          << " " << lrKey.mResult << " " << +lrKey.mOperationCode << std::dec << " tag " << lFailure->mTag
          << " trace " << +lrKey.mTrace;
    if (lrKey.mHasSense != 0) {
        lText << std::hex << " sense " << +lrKey.mSenseKey << "/" << +lrKey.mAsc << "/" << +lrKey.mAscq;
    }
    return lText.str();
}

std::string refusalOf(const std::string& acrText) {
    try {
        const ZTCScsiSample lSample(ZTCTraceFormat(acrText), ZTST_Done);
        return lSample.hasSense() ? "sense" : "no sense";
    } catch (const ZTCScsiNotAvailable& lrReason) {
        return lrReason.what();
    }
}

TEST(ScsiSample, IsReadByTheFormatOfItsKernel) {
    const ZTCTraceFormat lOld(sFields + sEnd);
    const ZTCTraceFormat lNew(sFields + sSense + sEnd);
    const std::string lAt = "3:1:2:4001000c ";
    const struct {
        const ZTCTraceFormat& mrFormat;
        ZTEScsiTrace mTrace;
        std::uint32_t mResult;
        std::string mRead;
    } lCases[] = {
        {lOld, ZTST_Done, 2, lAt + "2 28 tag 39 trace 0"},
        {lNew, ZTST_Done, 2, lAt + "2 28 tag 39 trace 0 sense 6/29/3"},
        {lNew, ZTST_Done, 0x28, lAt + "28 28 tag 39 trace 0"},
        {lNew, ZTST_Done, 0x8f0eff08, lAt + "e0008 28 tag 39 trace 0"},
        {lNew, ZTST_TimedOut, 2, lAt + "0 28 tag 39 trace 1"},
    };
    for (const auto& lrCase : lCases) {
        const ZTCScsiSample lSample(lrCase.mrFormat, lrCase.mTrace);
        EXPECT_EQ(lSample.hasSense(), &lrCase.mrFormat == &lNew);
        EXPECT_EQ(read(lSample, sampleOf(lrCase.mResult)), lrCase.mRead);
        EXPECT_EQ(read(lSample, sampleOf(lrCase.mResult, 68, 1339)), "nothing") << "of another event";
        for (std::size_t lSize = 0; lSize <= 68; ++lSize) {
            const bool lIsWhole = lSize >= (lSample.hasSense() ? 63U : 40U);
            EXPECT_EQ(read(lSample, sampleOf(lrCase.mResult, lSize)) != "nothing", lIsWhole) << lSize;
        }
    }
    auto lWithout = sampleOf(2);
    std::fill(lWithout.begin() + 60, lWithout.end(), 0);
    EXPECT_EQ(read(ZTCScsiSample(lNew, ZTST_Done), lWithout), lAt + "2 28 tag 39 trace 0");
}

TEST(ScsiSample, RefusesAFormatThatLies) {
    const std::string lNotUnderstood = "a format of the kernel's trace events is not understood: \"";
    const std::string lNoHost = "the trace events of SCSI have no field host_no";
    const struct {
        std::string mFrom, mTo, mRefusal;
    } lLies[] = {
        {"ID: 1340", "ID: 0", lNotUnderstood},
        {"ID: 1340", "ID: 65536", lNotUnderstood},
        {"ID: 1340\n", "ID: 1340\nID: 1339\n", lNotUnderstood},
        {"ID: 1340", "ID:", lNotUnderstood},
        {"host_no;\toffset:8;", "host_no;\toffset:8189;", lNotUnderstood},
        {"host_no;\toffset:8;", "host_no;\toffset:65535;", lNotUnderstood},
        {"host_no;\toffset:8;", "host_no;\toffset:65536;", lNotUnderstood},
        {"host_no;\toffset:8;", "host_no;\toffset:-8;", lNotUnderstood},
        {"host_no;\toffset:8;", "host_no;\toffset:8x;", lNotUnderstood},
        {"host_no;\toffset:8;\tsize:4;", "host_no;\toffset:8;", lNotUnderstood},
        {"host_no;\toffset:8;\tsize:4;\tsigned:0;\n", "host_no", lNoHost},
        {"channel;", "host_no;", lNotUnderstood},
        {"host_no;\toffset:8;\tsize:4;", "host_no;\toffset:8;\tsize:3;", lNoHost},
        {"host_no;\toffset:8;\tsize:4;", "host_no;\toffset:8;\tsize:0;", lNoHost},
        {"host_no;", "host_number;", lNoHost},
        {"host_no;", "host_no[4];", lNoHost},
        {"unsigned int host_no;", "__data_loc unsigned int[] host_no;", lNoHost},
        {"host_no;\toffset:8;", "host_no;\toffset:8188;", "sense"},
        {"int driver_tag;", "int tag;", "sense"},
        {"u8 ascq;", "u8 ascr;", "no sense"},
        {"\nprint fmt", "\tfield:int print;\nprint fmt", lNotUnderstood},
        {"REC->host_no", "\n\tfield:int print;\n", "sense"},
    };
    for (const auto& lrLie : lLies) {
        std::string lText = sFields + sSense + sEnd;
        lText.replace(lText.find(lrLie.mFrom), lrLie.mFrom.size(), lrLie.mTo);
        EXPECT_EQ(refusalOf(lText).substr(0, lrLie.mRefusal.size()), lrLie.mRefusal) << lrLie.mTo;
    }
    // An event may be shorter than its fields: the sample counts.
    std::string lFar = sFields + sEnd;
    lFar.replace(lFar.find("offset:8;"), 9, "offset:8188;");
    EXPECT_EQ(read(ZTCScsiSample(ZTCTraceFormat(lFar), ZTST_Done), sampleOf(2)), "nothing");
}

TEST(ScsiSample, FindsItsFormatOrSaysWhatIsWrong) {
    const ZTCTestDirectory lTracing;
    const auto lOpen = [&] {
        try {
            return std::to_string(ZTCTraceFormat(lTracing.getPath(), "scsi", "done").getId());
        } catch (const ZTCScsiNotAvailable& lrReason) {
            return std::string(lrReason.what());
        }
    };
    EXPECT_EQ(lOpen(), "tracefs is not mounted at " + lTracing.getPath());
    std::filesystem::create_directories(lTracing / "events/scsi/done");
    EXPECT_EQ(lOpen(), "this kernel has no SCSI: no trace event scsi/done");
    const std::string lFormat = lTracing / "events/scsi/done/format";
    for (const auto& [lrTarget, lrReason] :
         {std::pair{"/dev/zero", "File too large"}, {"/", "Is a directory"}}) {
        std::filesystem::create_symlink(lrTarget, lFormat);
        EXPECT_EQ(lOpen(), lFormat + ": " + lrReason);
        std::filesystem::remove(lFormat);
    }
    writeFile(lFormat, sFields + sSense + sEnd);
    EXPECT_EQ(lOpen(), "1340");
}

}  // namespace
