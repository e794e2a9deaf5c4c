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

// One of LUN 4001000c at 3:1:2, of a read, with the sense data 6/29/03 where it may have them.
std::vector<unsigned char> sampleOf(std::uint32_t aResult, std::size_t aSize = 68, std::uint32_t aId = 1340) {
    const std::uint32_t lNumbers[] = {aId, 77, 3,  1, 2, 0x4001000c, aResult, 0x28,
                                      6,   39, 40, 0, 0, 0,          0x60040, 0x00032906};
    std::vector<unsigned char> lBytes(sizeof lNumbers + 8);
    memcpy(lBytes.data(), lNumbers, sizeof lNumbers);
    return {lBytes.begin(), lBytes.begin() + static_cast<std::ptrdiff_t>(aSize)};
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
            EXPECT_EQ(read(lSample, sampleOf(lrCase.mResult, lSize)) != "nothing",
                      lSize >= (lSample.hasSense() ? 63U : 40U));
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
        std::string mRefusal;
        std::vector<std::string> mLies;  // what stands there, and what instead
    } lCases[] = {
        {lNotUnderstood,
         {"ID: 1340|ID: 0", "ID: 1340|ID: 65536",
          "ID: 1340|ID:", "ID: |ID: 7\nID: ", "offset:8;|offset:8189;", "offset:8;|offset:65535;",
          "offset:8;|offset:65536;", "offset:8;|offset:-8;", "offset:8;|offset:8x;", "offset:8;|",
          "channel;|host_no;", "\nprint fmt|\tfield:int print;\nprint fmt"}},
        {lNoHost,
         {"offset:8;\tsize:4;|offset:8;\tsize:3;", "offset:8;\tsize:4;|offset:8;\tsize:0;", "host_no;|host;",
          "host_no;|host_no[4];", "unsigned int host_no;|__data_loc unsigned int[] host_no;",
          "host_no;\toffset:8;\tsize:4;\tsigned:0;\n|host_no"}},
        {"sense", {"offset:8;|offset:8188;", "driver_tag|tag", "REC->|\n\tfield:"}},
        {"no sense", {"u8 ascq;|u8 ascr;"}},
    };
    for (const auto& lrCase : lCases) {
        for (const std::string& lrLie : lrCase.mLies) {
            const std::size_t lMiddle = lrLie.find('|');
            std::string lText = sFields + sSense + sEnd;
            lText.replace(lText.find(lrLie.substr(0, lMiddle)), lMiddle, lrLie.substr(lMiddle + 1));
            EXPECT_EQ(refusalOf(lText).substr(0, lrCase.mRefusal.size()), lrCase.mRefusal) << lrLie;
        }
    }
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
    std::filesystem::create_symlink("/dev/zero", lFormat);
    EXPECT_EQ(lOpen(), lFormat + ": File too large");
    std::filesystem::remove(lFormat);
    writeFile(lFormat, sFields + sSense + sEnd);
    EXPECT_EQ(lOpen(), "1340");
}

}  // namespace
