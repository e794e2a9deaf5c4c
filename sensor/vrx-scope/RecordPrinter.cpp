#include "RecordPrinter.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <set>

#include "Json.h"
#include "RecordJson.h"
#include "RecordText.h"
#include "Table.h"
#include "Terminal.h"
#include "TimeText.h"

namespace {

constexpr unsigned int sIndent = 2;

ZTSRecordView sViewOf(const ZTSPortNames& acrInitiator, const ZTSSensorRecord& acrRecord) {
    return {acrInitiator,           acrRecord.mCategory, acrRecord.mSubcategory, acrRecord.mTarget,
            acrRecord.mOccurrences, acrRecord.mFirst,    acrRecord.mLast,        acrRecord.mData};
}

// Calls the function with each record, and whose it is.
template <class Do>
void sEachRecord(const ZTSFetched& acrFetched, const Do& acrDo) {
    for (const ZTSSensorRecordList& lrList : acrFetched.mData) {
        for (const ZTSSensorRecord& lrRecord : lrList.mRecords) {
            acrDo(lrList.mInitiator, lrRecord);
        }
    }
}

class JsonLines : public ZTCRecordPrinter {
  public:
    JsonLines(std::string aCommand, Out aOut)
        : ZTCRecordPrinter(std::move(aOut)), mCommand(std::move(aCommand)) {}

    void add(const ZTSFetched& acrFetched) override {
        sEachRecord(acrFetched, [this](const ZTSPortNames& acrInitiator, const ZTSSensorRecord& acrRecord) {
            ZTCJsonWriter lJson(mText);
            lJson.beginObject();
            putHead(lJson, mCommand);
            putRecord(lJson, sViewOf(acrInitiator, acrRecord));
            lJson.endObject();
            mText += '\n';
            passOn();
        });
    }

  private:
    const std::string mCommand;
};

class JsonDocument : public ZTCRecordPrinter {
  public:
    JsonDocument(std::string aCommand, Out aOut)
        : ZTCRecordPrinter(std::move(aOut)), mCommand(std::move(aCommand)) {}

    void announce(const ZTSFetched& acrFetched) override {
        mTime = acrFetched.mTime;
        for (const ZTSSensorRecordList& lrList : acrFetched.mData) {
            if (mSeen.insert(lrList.mInitiator).second) {
                mInitiators.push_back(lrList.mInitiator);
            }
        }
    }
    void add(const ZTSFetched& acrFetched) override {
        sEachRecord(acrFetched, [this](const ZTSPortNames& acrInitiator, const ZTSSensorRecord& acrRecord) {
            begin();
            mJson.beginObject();
            putRecord(mJson, sViewOf(acrInitiator, acrRecord));
            mJson.endObject();
            passOn();
        });
    }
    void finish() override {
        begin();
        mJson.endList();
        mJson.endObject();
        mText += '\n';
        ZTCRecordPrinter::finish();
    }

  private:
    // What stands before the first record.
    void begin() {
        if (mHasBegun) {
            return;
        }
        mHasBegun = true;
        mJson.beginObject();
        putHead(mJson, mCommand);
        mJson.key("fetched");
        mJson.textOrNull(mTime ? isoText(toSensorTime(*mTime)) : "");
        mJson.key("initiators");
        mJson.beginList();
        for (const ZTSPortNames& lrNames : mInitiators) {
            putNames(mJson, lrNames);
            passOn();
        }
        mJson.endList();
        mJson.key("records");
        mJson.beginList();
    }

    const std::string mCommand;
    ZTCJsonWriter mJson{mText, sIndent};
    bool mHasBegun = false;
    std::optional<ZTSFetched::Time> mTime;
    std::vector<ZTSPortNames> mInitiators;  ///< in the order in which they come
    std::set<ZTSPortNames> mSeen;
};

class Tables : public ZTCRecordPrinter {
  public:
    Tables(bool aInUtc, Out aOut) : ZTCRecordPrinter(std::move(aOut)), mInUtc(aInUtc) {}

    void add(const ZTSFetched& acrFetched) override {
        for (const ZTSSensorRecordList& lrList : acrFetched.mData) {
            mText += fmt::format("{}initiator {}, node {}: {}\n", mIsFirst ? "" : "\n",
                                 bold(lrList.mInitiator.mPort.toText()), lrList.mInitiator.mNode.toText(),
                                 countText(lrList.mRecords.size(), "record"));
            mIsFirst = false;
            if (!lrList.mRecords.empty()) {
                addTable(lrList.mRecords);
            }
        }
    }
    void finish() override {
        mText += mIsFirst ? "no adapters\n" : "";
        ZTCRecordPrinter::finish();
    }

  private:
    // The cells are made twice, for the widths and for the lines: all of them at once would be many times the
    // records. Nothing stands behind the last column, whose width is of no matter.
    void addTable(const std::vector<ZTSSensorRecord>& acrRecords) {
        ZTCTable lTable({{"first"}, {"last"}, {"kind"}, {"events", true}, {"remote port"}, {"what"}});
        for (const ZTSSensorRecord& lrRecord : acrRecords) {
            lTable.measure(cellsOf(lrRecord, fieldsOf(lrRecord)));
        }
        mText += lTable.getHeading();
        for (const ZTSSensorRecord& lrRecord : acrRecords) {
            const auto lFields = fieldsOf(lrRecord);
            ZTCTable::Row lRow = cellsOf(lrRecord, lFields);
            lRow.back() = detailText(lrRecord, lFields);
            mText += lTable.toLine(lRow);
            passOn();
        }
    }
    ZTCTable::Row cellsOf(const ZTSSensorRecord& acrRecord,
                          const std::optional<ZTEventGroup>& acrFields) const {
        return {plainText(acrRecord.mFirst, mInUtc),
                plainTextBehind(acrRecord.mLast, acrRecord.mFirst, mInUtc),
                kindText(acrRecord),
                std::to_string(acrRecord.mOccurrences),
                remoteText(acrRecord, acrFields),
                ""};
    }

    const bool mInUtc;
    bool mIsFirst = true;
};

class PlainLines : public ZTCRecordPrinter {
  public:
    PlainLines(bool aInUtc, Out aOut) : ZTCRecordPrinter(std::move(aOut)), mInUtc(aInUtc) {}

    void add(const ZTSFetched& acrFetched) override {
        sEachRecord(acrFetched, [this](const ZTSPortNames& acrInitiator, const ZTSSensorRecord& acrRecord) {
            const auto lFields = fieldsOf(acrRecord);
            fmt::format_to(std::back_inserter(mText), "{}  {}  {} x {}  {}  {}\n",
                           plainText(acrRecord.mLast, mInUtc), acrInitiator.mPort.toText(),
                           acrRecord.mOccurrences, kindText(acrRecord), remoteText(acrRecord, lFields),
                           detailText(acrRecord, lFields));
            passOn();
        });
    }

  private:
    const bool mInUtc;
};

}  // namespace

std::unique_ptr<ZTCRecordPrinter> makeRecordPrinter(ZTEScopeForm aForm, const std::string& acrCommand,
                                                    bool aInUtc, ZTCRecordPrinter::Out aOut) {
    switch (aForm) {
        case ZTEScopeForm::Json:
            return std::make_unique<JsonDocument>(acrCommand, std::move(aOut));
        case ZTEScopeForm::JsonLines:
            return std::make_unique<JsonLines>(acrCommand, std::move(aOut));
        default:
            return std::make_unique<Tables>(aInUtc, std::move(aOut));
    }
}

std::unique_ptr<ZTCRecordPrinter> makeLinePrinter(ZTEScopeForm aForm, const std::string& acrCommand,
                                                  bool aInUtc, ZTCRecordPrinter::Out aOut) {
    if (aForm == ZTEScopeForm::JsonLines) {
        return std::make_unique<JsonLines>(acrCommand, std::move(aOut));
    }
    return std::make_unique<PlainLines>(aInUtc, std::move(aOut));
}
