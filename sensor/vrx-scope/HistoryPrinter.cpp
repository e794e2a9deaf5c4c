#include "HistoryPrinter.h"

#include <fmt/format.h>

#include <algorithm>

#include "HostJson.h"
#include "HostText.h"
#include "Json.h"
#include "LossText.h"
#include "PortText.h"
#include "RecordJson.h"
#include "RecordText.h"
#include "ShownText.h"
#include "Table.h"
#include "TimeText.h"

namespace {

constexpr unsigned int sIndent = 2;

class JsonLines : public ZTCHistoryPrinter {
  public:
    using ZTCHistoryPrinter::ZTCHistoryPrinter;

    void add(const ZTSStoredRecord& acrRecord) override { addLine("record", acrRecord); }
    void add(const ZTSLoss& acrLoss) override { addLine("loss", acrLoss); }
    void add(const ZTSChange& acrChange) override { addLine("change", acrChange); }
    void add(const ZTSStoredFpin& acrFpin) override { addLine("fpin", acrFpin); }
    void add(const ZTSStoredStall& acrStall) override { addLine("stall", acrStall); }

  private:
    template <class Item>
    void addLine(const char* apType, const Item& acrItem) {
        ZTCJsonWriter lJson(mText);
        lJson.beginObject();
        putHead(lJson, "history");
        lJson.key("type");
        lJson.text(apType);
        putStored(lJson, acrItem, mFrame);
        lJson.endObject();
        mText += '\n';
        passOn();
    }
};

class JsonDocument : public ZTCHistoryPrinter {
  public:
    JsonDocument(ZTSHistoryFrame aFrame, Out aOut) : ZTCHistoryPrinter(std::move(aFrame), std::move(aOut)) {
        mJson.beginObject();
        putHead(mJson, "history");
        mJson.key("host");
        mJson.escapedTextOrNull(mFrame.mHost);
        mJson.key(Lists[0]);
        mJson.beginList();
    }

    bool isMixed() const override { return false; }
    void add(const ZTSStoredRecord& acrRecord) override { addTo(0, acrRecord); }
    void add(const ZTSLoss& acrLoss) override { addTo(1, acrLoss); }
    void add(const ZTSChange& acrChange) override { addTo(2, acrChange); }
    void add(const ZTSStoredFpin& acrFpin) override { addTo(3, acrFpin); }
    void add(const ZTSStoredStall& acrStall) override { addTo(4, acrStall); }
    void finish() override {
        goTo(std::size(Lists) - 1);
        mJson.endList();
        mJson.endObject();
        mText += '\n';
        ZTCHistoryPrinter::finish();
    }

  private:
    static constexpr const char* Lists[] = {"records", "losses", "changes", "fpins", "stalls"};

    void goTo(std::size_t aList) {
        while (mList < aList) {
            mJson.endList();
            mJson.key(Lists[++mList]);
            mJson.beginList();
        }
    }
    template <class Item>
    void addTo(std::size_t aList, const Item& acrItem) {
        goTo(aList);
        mJson.beginObject();
        putStored(mJson, acrItem, mFrame);
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
        const bool lHasRemote = lrRecord.mSeries.mRemote.has_value();
        addRow(
            {plainText(lFirst, mFrame.mInUtc),
             plainTextBehind(toSensorTime(lrRecord.mLast), lFirst, mFrame.mInUtc), kindText(lFetched),
             groupedText(lrRecord.mOccurrences), portText(mFrame.mLabels, lrRecord.mSeries.mInitiator.mPort),
             lHasRemote ? portText(mFrame.mLabels, lrRecord.mSeries.mRemote) : remoteText(lFetched, lFields),
             detailText(lFetched, lFields)},
            acrRecord.mIsOpen ? "still open" : "", mFrame.windowOf(lrRecord));
    }
    void add(const ZTSStoredFpin& acrFpin) override {
        const ZTSFpin& lrFpin = acrFpin.mFpin;
        const ZTSSensorTime lFirst = toSensorTime(lrFpin.mFirst);
        addRow({plainText(lFirst, mFrame.mInUtc),
                plainTextBehind(toSensorTime(lrFpin.mLast), lFirst, mFrame.mInUtc), "fpin",
                groupedText(lrFpin.mTimes), portText(mFrame.mLabels, lrFpin.mInitiator),
                portText(mFrame.mLabels, portOf(lrFpin)), fpinText(lrFpin, mFrame.mLabels)},
               "", mFrame.windowOf(lrFpin));
    }
    void add(const ZTSStoredStall& acrStall) override {
        const ZTSStall& lrStall = acrStall.mStall;
        const ZTSSensorTime lFirst = toSensorTime(lrStall.mFirst);
        addRow({plainText(lFirst, mFrame.mInUtc),
                plainTextBehind(toSensorTime(lrStall.mLast), lFirst, mFrame.mInUtc), "stall", "-", "-", "-",
                stallText(lrStall, mFrame.mLabels)},
               lrStall.mIsOver ? "" : "still under way", mFrame.windowOf(lrStall));
    }
    void add(const ZTSLoss& acrLoss) override {
        const ZTSSensorTime lFirst = toSensorTime(acrLoss.mFirst);
        addNote(fmt::format("{} to {}: {}", plainText(lFirst, mFrame.mInUtc),
                            plainTextBehind(toSensorTime(acrLoss.mLast), lFirst, mFrame.mInUtc),
                            lossText(acrLoss)));
    }
    void add(const ZTSChange& acrChange) override {
        const ZTSChange lNamed = nameThePortsOf(mFrame.mLabels, acrChange);
        const std::string lWindow = windowText(mFrame.windowOf(acrChange));
        addNote(plainText(toSensorTime(acrChange.mTime), mFrame.mInUtc) + ": " + changeText(lNamed) +
                (lWindow.empty() ? "" : ", " + lWindow));
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
    // What else there is to say stands behind the row's last cell.
    void addRow(ZTCTable::Row aRow, const char* apState, const ZTSWindow* apWindow) {
        for (const std::string& lrMore : {std::string(apState), windowText(apWindow)}) {
            aRow.back() += (aRow.back().empty() || lrMore.empty() ? "" : ", ") + lrMore;
        }
        mText += mHasHeading ? "" : mTable.getHeading();
        mText += mTable.toLine(aRow);
        mHasHeading = true;
        mIsEmpty = false;
        passOn();
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

std::string windowText(const ZTSWindow* apWindow) {
    if (apWindow == nullptr) {
        return {};
    }
    return "in maintenance" + (apWindow->mText.empty() ? "" : " (" + toShownText(apWindow->mText) + ")");
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
