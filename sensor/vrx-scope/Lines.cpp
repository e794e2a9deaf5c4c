#include "Lines.h"

#include <fmt/format.h>

#include "Json.h"
#include "RecordText.h"
#include "Table.h"
#include "Terminal.h"
#include "TimeText.h"

namespace {

std::string tablesOf(const ZTSFetched& acrFetched, bool aInUtc) {
    std::string lText;
    for (const ZTSSensorRecordList& lrList : acrFetched.mData) {
        lText += fmt::format("{}initiator {}, node {}: {}\n", lText.empty() ? "" : "\n",
                             bold(lrList.mInitiator.mPort.toText()), lrList.mInitiator.mNode.toText(),
                             countText(lrList.mRecords.size(), "record"));
        if (lrList.mRecords.empty()) {
            continue;
        }
        ZTCTable lTable({{"first"}, {"last"}, {"kind"}, {"events", true}, {"remote port"}, {"what"}});
        for (const ZTSSensorRecord& lrRecord : lrList.mRecords) {
            lTable.add({plainText(lrRecord.mFirst, aInUtc),
                        plainTextBehind(lrRecord.mLast, lrRecord.mFirst, aInUtc), kindText(lrRecord),
                        std::to_string(lrRecord.mOccurrences), remoteText(lrRecord), detailText(lrRecord)});
        }
        lText += lTable.toText();
    }
    return lText.empty() ? "no adapters\n" : lText;
}

std::string plainLines(const ZTSFetched& acrFetched, bool aInUtc) {
    std::string lText;
    for (const ZTSSensorRecordList& lrList : acrFetched.mData) {
        for (const ZTSSensorRecord& lrRecord : lrList.mRecords) {
            lText += fmt::format("{}  {}  {} x {}  {}  {}\n", plainText(lrRecord.mLast, aInUtc),
                                 lrList.mInitiator.mPort.toText(), lrRecord.mOccurrences, kindText(lrRecord),
                                 remoteText(lrRecord), detailText(lrRecord));
        }
    }
    return lText;
}

}  // namespace

std::string toText(const std::string& acrCommand, const ZTSFetched& acrFetched, ZTEScopeForm aForm,
                   bool aInUtc) {
    switch (aForm) {
        case ZTEScopeForm::Json:
            return fetchedJson(acrCommand, acrFetched);
        case ZTEScopeForm::JsonLines:
            return recordLines(acrCommand, acrFetched);
        default:
            return tablesOf(acrFetched, aInUtc);
    }
}

void ZTCLines::add(const ZTSFetched& acrFetched) {
    put(mForm == ZTEScopeForm::JsonLines ? recordLines("watch", acrFetched) : plainLines(acrFetched, mInUtc));
}

void ZTCLines::tell(const std::string& acrText, bool /*aIsThere*/) {
    complain(acrText);
}
