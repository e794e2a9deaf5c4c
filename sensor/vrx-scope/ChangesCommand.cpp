#include <algorithm>

#include "Commands.h"
#include "Failure.h"
#include "HistoryPrinter.h"
#include "HistoryQuery.h"
#include "HostJson.h"
#include "Json.h"
#include "PortText.h"
#include "RecordJson.h"
#include "ShownText.h"
#include "Table.h"
#include "Terminal.h"
#include "TimeScan.h"
#include "TimeText.h"

namespace {

constexpr std::size_t sWidest = 48;  // characters that a cell asks for; a longer one moves its own row alone

class Changes {
  public:
    explicit Changes(const ZTSScopeOptions& acrOptions)
        : mrOptions(acrOptions),
          mReader(acrOptions.mHistory.mStore),
          mQuery(makeQuery(acrOptions.mHistory, mReader,
                           toNanoseconds(toSensorTime(std::chrono::system_clock::now())), acrOptions.mInUtc)),
          mPlace(mReader.readPlace()),
          mFrame{mReader.getHost(), mReader.readLabels(), acrOptions.mInUtc, mReader.readWindows(),
                 mQuery.mpBelow} {}

    void run() {
        std::uint64_t lCount = 0;
        forEach([&](const ZTSChange& acrChange) {
            ++lCount;
            measure(acrChange);
        });
        const std::uint64_t lLimit = mrOptions.mHistory.mLimit;
        std::uint64_t lSkip = lLimit != 0 && lCount > lLimit ? lCount - lLimit : 0;
        begin(lCount == 0);
        forEach([&](const ZTSChange& acrChange) {
            if (lSkip != 0) {
                --lSkip;
                return;
            }
            print(acrChange);
        });
        end();
    }

  private:
    bool isMeant(const ZTSChange& acrChange) const {
        const std::vector<std::string>& lrWhats = mrOptions.mHistory.mWhats;
        return (lrWhats.empty() ||
                std::find(lrWhats.begin(), lrWhats.end(), acrChange.mWhat) != lrWhats.end()) &&
               mQuery.takes(acrChange);
    }

    template <class Call>
    void forEach(const Call& acrCall) {
        ZTSHistoryFilter lTimes;
        lTimes.mSince = mQuery.mFilter.mSince;
        lTimes.mUntil = mQuery.mFilter.mUntil;
        ZTCChangeScan lScan(mReader, lTimes, mPlace);
        for (bool lIsMore = true; lIsMore;) {
            std::vector<ZTSChange> lChanges;
            lIsMore = lScan.read(lChanges);
            for (const ZTSChange& lrChange : lChanges) {
                if (isMeant(lrChange)) {
                    acrCall(lrChange);
                }
            }
        }
    }

    ZTCTable::Row rowOf(const ZTSChange& acrChange) const {
        const ZTSChange lNamed = nameThePortsOf(mFrame.mLabels, acrChange);
        const auto lShown = [](const std::string& acrText) {
            return acrText.empty() ? "-" : toShownText(acrText);
        };
        std::string lWhat = acrChange.mWhat;
        std::replace(lWhat.begin(), lWhat.end(), '_', ' ');
        const std::string lEvent = acrChange.mAttribute.empty() ? acrChange.mEvent
                                   : acrChange.mEvent == "changed"
                                       ? acrChange.mAttribute
                                       : acrChange.mEvent + ": " + acrChange.mAttribute;
        const std::string lWindow = windowText(mFrame.windowOf(acrChange));
        return {plainText(toSensorTime(acrChange.mTime), mFrame.mInUtc),
                lShown(lWhat),
                lShown(lNamed.mName),
                lShown(lEvent),
                lShown(lNamed.mBefore),
                lShown(lNamed.mAfter) + (lWindow.empty() ? "" : ", " + lWindow)};
    }

    void measure(const ZTSChange& acrChange) {
        if (mrOptions.getForm() != ZTEScopeForm::Table) {
            return;
        }
        ZTCTable::Row lRow = rowOf(acrChange);
        for (std::string& lrCell : lRow) {
            lrCell.resize(std::min(lrCell.size(), sWidest));
        }
        mTable.measure(lRow);
    }

    void begin(bool aIsEmpty) {
        if (mrOptions.getForm() == ZTEScopeForm::Json) {
            mJson.beginObject();
            putHead(mJson, "changes");
            putTexts(mJson, {{"host", mFrame.mHost}});
            mJson.key("changes");
            mJson.beginList();
        } else if (mrOptions.getForm() == ZTEScopeForm::Table) {
            mText += aIsEmpty ? "no changes\n" : mTable.getHeading();
        }
    }

    void print(const ZTSChange& acrChange) {
        constexpr std::size_t lPiece = 64 * 1024;
        if (mrOptions.getForm() == ZTEScopeForm::Table) {
            mText += mTable.toLine(rowOf(acrChange));
        } else if (mrOptions.getForm() == ZTEScopeForm::Json) {
            mJson.beginObject();
            putFields(mJson, acrChange);
        } else {
            ZTCJsonWriter lJson(mText);
            lJson.beginObject();
            putHead(lJson, "changes");
            putFields(lJson, acrChange);
            mText += '\n';
        }
        if (mText.size() > lPiece) {
            put(std::exchange(mText, {}));
        }
    }

    void end() {
        if (mrOptions.getForm() == ZTEScopeForm::Json) {
            mJson.endList();
            mJson.endObject();
            mText += '\n';
        }
        put(mText);
    }

    void putFields(ZTCJsonWriter& arJson, const ZTSChange& acrChange) const {
        putChange(arJson, acrChange, mFrame.mLabels, mFrame.mHost);
        putWindow(arJson, mFrame.windowOf(acrChange));
        arJson.endObject();
    }

    const ZTSScopeOptions& mrOptions;
    ZTCStoreReader mReader;
    const ZTSHistoryQuery mQuery;
    const ZTSStorePlace mPlace;
    const ZTSHistoryFrame mFrame;
    std::string mText;
    ZTCJsonWriter mJson{mText};
    ZTCTable mTable{{{"time"}, {"what"}, {"name"}, {"change"}, {"before"}, {"after"}}};
};

}  // namespace

int runChanges(const ZTSScopeOptions& acrOptions) {
    checkWhats(acrOptions.mHistory.mWhats);
    try {
        Changes(acrOptions).run();
    } catch (const ZTCScopeClosed&) {
        return 0;  // whoever reads has seen enough
    }
    return 0;
}
