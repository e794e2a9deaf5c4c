#include "HistoryPrinter.h"

#include <fmt/format.h>

#include "Json.h"
#include "LossText.h"
#include "RecordJson.h"
#include "RecordText.h"
#include "ShownText.h"
#include "Table.h"
#include "TimeText.h"

namespace {

constexpr unsigned int sIndent = 2;

void sPutHead(ZTCJsonWriter& arJson) {
    arJson.key("schema");
    arJson.number(ZTScopeSchema);
    arJson.key("command");
    arJson.text("history");
}

void sPutStored(ZTCJsonWriter& arJson, const ZTSStoredRecord& acrRecord, const ZTSHistoryFrame& acrFrame) {
    const ZTSRecord& lrRecord = acrRecord.mRecord;
    putRecord(arJson, viewOf(lrRecord));
    putPlace(arJson, {acrRecord.mId, acrFrame.mHost, lrRecord.mSeries, acrFrame.mLabels, acrRecord.mIsOpen});
}

class JsonLines : public ZTCHistoryPrinter {
  public:
    using ZTCHistoryPrinter::ZTCHistoryPrinter;

    void add(const ZTSStoredRecord& acrRecord) override {
        addLine("record", [&](ZTCJsonWriter& arJson) { sPutStored(arJson, acrRecord, mFrame); });
    }
    void add(const ZTSLoss& acrLoss) override {
        addLine("loss", [&](ZTCJsonWriter& arJson) { putLoss(arJson, acrLoss, mFrame.mHost); });
    }
    void add(const ZTSChange& acrChange) override {
        addLine("change", [&](ZTCJsonWriter& arJson) { putChange(arJson, acrChange, mFrame.mHost); });
    }

  private:
    template <class Put>
    void addLine(const char* apType, const Put& acrPut) {
        ZTCJsonWriter lJson(mText);
        lJson.beginObject();
        sPutHead(lJson);
        lJson.key("type");
        lJson.text(apType);
        acrPut(lJson);
        lJson.endObject();
        mText += '\n';
        passOn();
    }
};

class JsonDocument : public ZTCHistoryPrinter {
  public:
    JsonDocument(ZTSHistoryFrame aFrame, Out aOut) : ZTCHistoryPrinter(std::move(aFrame), std::move(aOut)) {
        mJson.beginObject();
        sPutHead(mJson);
        mJson.key("host");
        mJson.escapedTextOrNull(mFrame.mHost);
        mJson.key(Lists[0]);
        mJson.beginList();
    }

    bool isMixed() const override { return false; }
    void add(const ZTSStoredRecord& acrRecord) override {
        addTo(0, [&] { sPutStored(mJson, acrRecord, mFrame); });
    }
    void add(const ZTSLoss& acrLoss) override {
        addTo(1, [&] { putLoss(mJson, acrLoss, mFrame.mHost); });
    }
    void add(const ZTSChange& acrChange) override {
        addTo(2, [&] { putChange(mJson, acrChange, mFrame.mHost); });
    }
    void finish() override {
        goTo(std::size(Lists) - 1);
        mJson.endList();
        mJson.endObject();
        mText += '\n';
        ZTCHistoryPrinter::finish();
    }

  private:
    static constexpr const char* Lists[] = {"records", "losses", "changes"};

    void goTo(std::size_t aList) {
        while (mList < aList) {
            mJson.endList();
            mJson.key(Lists[++mList]);
            mJson.beginList();
        }
    }
    template <class Put>
    void addTo(std::size_t aList, const Put& acrPut) {
        goTo(aList);
        mJson.beginObject();
        acrPut();
        mJson.endObject();
        passOn();
    }

    ZTCJsonWriter mJson{mText, sIndent};
    std::size_t mList = 0;
};

// The same as the agent would have told it, for the words of its block.
ZTSSensorRecord sAsFetched(const ZTSRecord& acrRecord) {
    ZTSSensorRecord lRecord;
    lRecord.mCategory = acrRecord.mSeries.mCategory;
    lRecord.mSubcategory = acrRecord.mSeries.mSubcategory;
    lRecord.mTarget = acrRecord.mSeries.mTarget;
    lRecord.mData = acrRecord.mData;
    return lRecord;
}

class Tables : public ZTCHistoryPrinter {
  public:
    Tables(ZTSHistoryFrame aFrame, const std::vector<ZTSStoredSeries>& acrSeries, Out aOut)
        : ZTCHistoryPrinter(std::move(aFrame), std::move(aOut)) {
        // A usual row, queue_full: where nothing is there yet more may come while it is followed.
        ZTSSeries lUsual;
        lUsual.mCategory = 4;
        lUsual.mSubcategory = 1;
        lUsual.mRemote = ZTSWwn{};
        measure(lUsual);
        for (const ZTSStoredSeries& lrSeries : acrSeries) {
            measure(lrSeries.mSeries);
        }
    }

    void add(const ZTSStoredRecord& acrRecord) override {
        const ZTSRecord& lrRecord = acrRecord.mRecord;
        const ZTSSensorTime lFirst = toSensorTime(lrRecord.mFirst);
        const ZTSSensorRecord lFetched = sAsFetched(lrRecord);
        const auto lFields = fieldsOf(lFetched);
        const std::string lDetail = detailText(lFetched, lFields);
        const bool lHasRemote = lrRecord.mSeries.mRemote.has_value();
        addHeading();
        mText += mTable.toLine(
            {plainText(lFirst, mFrame.mInUtc),
             plainTextBehind(toSensorTime(lrRecord.mLast), lFirst, mFrame.mInUtc), kindText(lFetched),
             groupedText(lrRecord.mOccurrences), portText(mFrame.mLabels, lrRecord.mSeries.mInitiator.mPort),
             lHasRemote ? portText(mFrame.mLabels, lrRecord.mSeries.mRemote) : remoteText(lFetched, lFields),
             lDetail + (!acrRecord.mIsOpen ? ""
                        : lDetail.empty()  ? "still open"
                                           : ", still open")});
        passOn();
    }
    void add(const ZTSLoss& acrLoss) override {
        const ZTSSensorTime lFirst = toSensorTime(acrLoss.mFirst);
        addNote(fmt::format("{} to {}: {}", plainText(lFirst, mFrame.mInUtc),
                            plainTextBehind(toSensorTime(acrLoss.mLast), lFirst, mFrame.mInUtc),
                            lossText(acrLoss)));
    }
    void add(const ZTSChange& acrChange) override {
        addNote(plainText(toSensorTime(acrChange.mTime), mFrame.mInUtc) + ": " + changeText(acrChange));
    }
    void finish() override {
        mText += mIsEmpty ? "no events\n" : "";
        ZTCHistoryPrinter::finish();
    }

  private:
    void measure(const ZTSSeries& acrSeries) {
        constexpr std::uint64_t lUsual = 999'999;
        const std::string lFirst = plainText(toSensorTime(ZTNanoseconds{0}), mFrame.mInUtc);
        ZTSSensorRecord lKind;
        lKind.mCategory = acrSeries.mCategory;
        lKind.mSubcategory = acrSeries.mSubcategory;
        mTable.measure({lFirst, std::string(lFirst, 11, 12), kindText(lKind), groupedText(lUsual),
                        portText(mFrame.mLabels, acrSeries.mInitiator.mPort),
                        portText(mFrame.mLabels, acrSeries.mRemote), ""});
    }
    void addHeading() {
        mText += mHasHeading ? "" : mTable.getHeading();
        mHasHeading = true;
        mIsEmpty = false;
    }
    void addNote(const std::string& acrText) {
        mText += "-- " + toShownText(acrText) + "\n";
        mIsEmpty = false;
        passOn();
    }

    ZTCTable mTable{
        {{"first"}, {"last"}, {"kind"}, {"events", true}, {"initiator"}, {"remote port"}, {"what"}}};
    bool mHasHeading = false;
    bool mIsEmpty = true;
};

}  // namespace

std::string portText(const ZTPortLabels& acrLabels, const std::optional<ZTSWwn>& acrPort) {
    if (!acrPort) {
        return "-";
    }
    const auto lAt = acrLabels.find(*acrPort);
    return lAt != acrLabels.end() && !lAt->second.mName.empty() ? toShownText(lAt->second.mName)
                                                                : acrPort->toText();
}

std::unique_ptr<ZTCHistoryPrinter> makeHistoryPrinter(ZTEScopeForm aForm, ZTSHistoryFrame aFrame,
                                                      const std::vector<ZTSStoredSeries>& acrSeries,
                                                      ZTCHistoryPrinter::Out aOut) {
    switch (aForm) {
        case ZTEScopeForm::Json:
            return std::make_unique<JsonDocument>(std::move(aFrame), std::move(aOut));
        case ZTEScopeForm::JsonLines:
            return std::make_unique<JsonLines>(std::move(aFrame), std::move(aOut));
        default:
            return std::make_unique<Tables>(std::move(aFrame), acrSeries, std::move(aOut));
    }
}
