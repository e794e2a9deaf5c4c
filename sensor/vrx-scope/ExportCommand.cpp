#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "CommandParts.h"
#include "Commands.h"
#include "Disguise.h"
#include "Failure.h"
#include "HistorySources.h"
#include "HostClock.h"
#include "IncidentJson.h"
#include "IncidentText.h"
#include "Json.h"
#include "RecordJson.h"
#include "SensorFiles.h"
#include "ShownText.h"
#include "Terminal.h"
#include "TimeText.h"
#include "WhenText.h"

namespace {

constexpr ZTNanoseconds sBefore = 7 * 86400 * ZTSecond;  // of changes, before it began
constexpr std::size_t sMostIds = 100'000;

// Where it goes. A file is there whole, or not at all.
class Out {
  public:
    explicit Out(const std::string& acrPath) : mPath(acrPath) {
        if (mPath.empty()) {
            return;
        }
        mFile = ZTCSensorDescriptor(
            open(mPath.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOCTTY, 0600));
        if (!mFile.isOpen()) {
            throw ZTCScopeFailure(fmt::format("cannot write {}: {}", toShownText(mPath), strerror(errno)));
        }
    }
    ~Out() {
        if (mFile.isOpen() && !mIsWhole) {
            unlink(mPath.c_str());
        }
    }
    Out(const Out&) = delete;
    Out& operator=(const Out&) = delete;

    void add(const std::string& acrText) {
        if (!mFile.isOpen()) {
            put(acrText);
            return;
        }
        const std::string lText = plainLines(acrText);
        for (std::size_t lAt = 0; lAt < lText.size();) {
            const ssize_t lWritten = write(mFile.get(), lText.data() + lAt, lText.size() - lAt);
            if (lWritten < 0 && errno != EINTR) {
                fail();
            }
            lAt += lWritten < 0 ? 0 : static_cast<std::size_t>(lWritten);
        }
    }
    void finish() {
        if (mFile.isOpen() && fsync(mFile.get()) != 0 && errno != EINVAL) {  // EINVAL: a device
            fail();
        }
        mIsWhole = true;
    }

  private:
    [[noreturn]] void fail() const {
        throw ZTCScopeFailure(fmt::format("cannot write {}: {}", toShownText(mPath), strerror(errno)));
    }

    const std::string mPath;
    ZTCSensorDescriptor mFile;
    bool mIsWhole = false;
};

// "UTC+01:00".
std::string sZoneText(const ZTSZoneTime& acrZone) {
    constexpr std::int64_t lMinute = 60;
    const std::int64_t lMinutes = std::abs(acrZone.mOffset) / lMinute;
    return fmt::format("{}, UTC{}{:02}:{:02}", acrZone.mName, acrZone.mOffset < 0 ? '-' : '+',
                       lMinutes / lMinute, lMinutes % lMinute);
}

// In UTC, and where it is another, in the local zone.
std::string sBothTimes(ZTNanoseconds aTime) {
    const ZTSSensorTime lTime = toSensorTime(aTime);
    std::string lUtc = plainText(lTime, true);
    if (zoneOfProcess(aTime / ZTSecond).mOffset == 0) {
        return lUtc;
    }
    return fmt::format("{} ({})", lUtc, plainText(lTime, false));
}

class Export {
  public:
    explicit Export(const ZTSScopeOptions& acrOptions)
        : mrOptions(acrOptions),
          mReader(acrOptions.mHistory.mStore),
          mTold(tellIncident(mReader,
                             followMerges(mReader, readIncidentOf(mReader, acrOptions.mIncident.mId)))),
          mFrame(readIncidentFrame(mReader)),
          mPlace(mReader.readPlace()) {
        askForIncident(mTold.mIncident, mQuery);
        mQuery.mChangesSince = mTold.mIncident.mOpened - sBefore;
        mEvidence = mReader.readEvidence(mTold.mIncident, sMostIds);
        disguise();
    }

    void write(Out& arOut) {
        if (mrOptions.getForm() == ZTEScopeForm::Table) {
            arOut.add(headText());
            arOut.add(incidentText(mTold, mFrame, sBothTimes));
            arOut.add("\nRecords, losses, changes, FPINs and stalls, in the order of time\n");
            writeHistory(ZTEScopeForm::Table, arOut);
            arOut.add("\nThe same as lines of JSON (docs/json.md)\n");
        }
        arOut.add(headJson());
        arOut.add(incidentJson());
        writeHistory(ZTEScopeForm::JsonLines, arOut);
    }

  private:
    bool hasPseudonyms() const { return mrOptions.mIncident.mHasPseudonyms; }

    void disguise() {
        if (!hasPseudonyms()) {
            mWindows = mReader.readWindows();
            mQuery.mpBelow->read(mReader);
            return;
        }
        mpDisguise = std::make_unique<ZTCDisguise>(mReader, mTold.mIncident);
        mTold.mIncident = mpDisguise->of(std::move(mTold.mIncident));
        mFrame.mHost = mpDisguise->hostOf(mFrame.mHost);
        mFrame.mLabels = mpDisguise->labelsOf(mFrame.mLabels);
    }

    std::string headText() const {
        return fmt::format(
            "Incident {} of {}, as vrx-scope has exported it\n"
            "  written       {}\n"
            "  local zone    {}\n"
            "  host's clock  {}\n"
            "  names         {}\n\n",
            mTold.mIncident.mId, mFrame.mHost.empty() ? "an unnamed host" : toShownText(mFrame.mHost),
            sBothTimes(mFrame.mNow), sZoneText(zoneNow()), clockText(mClock),
            hasPseudonyms() ? "pseudonyms: each stands for the same throughout; what people wrote is left out"
                            : "as they are");
    }

    ZTSZoneTime zoneNow() const { return zoneOfProcess(mFrame.mNow / ZTSecond); }

    std::string headJson() const {
        std::string lText;
        ZTCJsonWriter lJson(lText);
        lJson.beginObject();
        putHead(lJson, "incidents export");
        lJson.key("written");
        putTime(lJson, toSensorTime(mFrame.mNow));
        lJson.key("zone");
        lJson.escapedTextOrNull(sZoneText(zoneNow()));
        lJson.key("clock");
        putClock(lJson);
        lJson.key("pseudonyms");
        lJson.boolean(hasPseudonyms());
        lJson.endObject();
        return lText + "\n";
    }

    void putClock(ZTCJsonWriter& arJson) const {
        if (!mClock) {
            arJson.null();
            return;
        }
        arJson.beginObject();
        arJson.key("synchronised");
        arJson.boolean(mClock->mIsSynchronised);
        arJson.key("max_error_us");
        arJson.number(static_cast<std::uint64_t>(mClock->mMaxError));
        arJson.key("estimated_error_us");
        arJson.number(static_cast<std::uint64_t>(mClock->mEstimatedError));
        arJson.endObject();
    }

    std::string incidentJson() const {
        std::string lText;
        ZTCJsonWriter lJson(lText);
        lJson.beginObject();
        putHead(lJson, "incidents");
        putIncident(lJson, mTold.mIncident, mFrame.mHost, mFrame.mLabels, mEvidence);
        lJson.endObject();
        return lText + "\n";
    }

    void writeHistory(ZTEScopeForm aForm, Out& arOut) {
        const auto lpPrinter =
            makeHistoryPrinter(aForm,
                               {mFrame.mHost, mFrame.mLabels, mrOptions.mInUtc, mWindows, mQuery.mpBelow,
                                nullptr, mTold.mIncident.mId},
                               mpDisguise ? std::vector<ZTSStoredSeries>() : mReader.readSeries(),
                               [&arOut](const std::string& acrText) { arOut.add(acrText); });
        ZTHistorySources lSources = listHistorySources(mReader, mQuery, mPlace, 0);
        if (mpDisguise) {
            ZTCDisguisedPrinter lPrinter(*mpDisguise, *lpPrinter);
            printHistory(lSources, lPrinter);
        } else {
            printHistory(lSources, *lpPrinter);
        }
        lpPrinter->finish();
    }

    const ZTSScopeOptions& mrOptions;
    ZTCStoreReader mReader;
    ZTSIncidentTold mTold;
    ZTSIncidentFrame mFrame;
    const ZTSStorePlace mPlace;
    const std::optional<ZTSHostClock> mClock = readHostClock();
    ZTSHistoryQuery mQuery;
    std::vector<std::uint64_t> mEvidence;
    std::vector<ZTSWindow> mWindows;
    std::unique_ptr<ZTCDisguise> mpDisguise;  // null: names as they are
};

}  // namespace

int runExport(const ZTSScopeOptions& acrOptions) {
    checkNothingOfList(acrOptions.mHistory, acrOptions.mIncident);
    if (acrOptions.getForm() == ZTEScopeForm::Json) {
        throw ZTCScopeUsage("an export has many lines of JSON: use --ndjson for these alone");
    }
    Export lExport(acrOptions);
    Out lOut(acrOptions.mIncident.mOut);
    try {
        lExport.write(lOut);
        lOut.finish();
    } catch (const ZTCScopeClosed&) {
        return 0;  // whoever reads has seen enough
    }
    return 0;
}
