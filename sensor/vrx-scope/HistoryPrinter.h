// The history as it is printed: a table, a document of JSON, or a line of JSON each.
#pragma once

#include <functional>
#include <memory>

#include "IncidentLookup.h"
#include "PathsBelow.h"
#include "RecordPrinter.h"
#include "StoreReader.h"

/// What stands with everything that is printed.
struct ZTSHistoryFrame {
    std::string mHost;
    ZTPortLabels mLabels;
    bool mInUtc = false;
    std::vector<ZTSWindow> mWindows{};
    std::shared_ptr<const ZTCPathsBelow> mpBelow{};          ///< never null where there are windows
    std::shared_ptr<const ZTCIncidentLookup> mpIncidents{};  ///< null: nobody asks for them
    std::uint64_t mIncident = 0;                             ///< 0: records are of several, or of none

    /// To which a record belongs; 0: to none.
    std::uint64_t incidentOf(const ZTSRecord& acrRecord) const;
    // The window of maintenance that something fell into; null: none.
    const ZTSWindow* windowOf(const ZTSRecord& acrRecord) const;
    const ZTSWindow* windowOf(const ZTSFpin& acrFpin) const;
    const ZTSWindow* windowOf(const ZTSStall& acrStall) const;
    const ZTSWindow* windowOf(const ZTSChange& acrChange) const;
};

/// "in maintenance (new firmware)"; empty for none. Fit to be shown.
std::string windowText(const ZTSWindow* apWindow);

/// The change with the names of ports in place of their numbers, where they have names.
ZTSChange nameThePortsOf(const ZTPortLabels& acrLabels, ZTSChange aChange);

/// As it comes, in pieces of whole lines. One thread.
class ZTCHistoryPrinter {
  public:
    using Out = std::function<void(const std::string&)>;

    ZTCHistoryPrinter(ZTSHistoryFrame aFrame, Out aOut) : mFrame(std::move(aFrame)), mOut(std::move(aOut)) {}
    virtual ~ZTCHistoryPrinter() = default;
    ZTCHistoryPrinter(const ZTCHistoryPrinter&) = delete;
    ZTCHistoryPrinter& operator=(const ZTCHistoryPrinter&) = delete;

    /// Whether all comes in the order of time; else each sort behind the one before, as it is added here.
    virtual bool isMixed() const { return true; }
    virtual void add(const ZTSStoredRecord& acrRecord) = 0;
    virtual void add(const ZTSLoss& acrLoss) = 0;
    virtual void add(const ZTSChange& acrChange) = 0;
    virtual void add(const ZTSStoredFpin& acrFpin) = 0;
    virtual void add(const ZTSStoredStall& acrStall) = 0;
    /// Lets go of what has been made.
    void flush() { passOn(0); }
    /// Nothing more comes.
    virtual void finish() { flush(); }

  protected:
    static constexpr std::size_t Piece = 64 * 1024;

    void passOn(std::size_t aLength = Piece) {
        if (mText.size() > aLength) {
            mOut(mText);
            mText.clear();
        }
    }

    const ZTSHistoryFrame mFrame;
    std::string mText;

  private:
    const Out mOut;
};

/// acrSeries: what the columns of a table must have room for.
std::unique_ptr<ZTCHistoryPrinter> makeHistoryPrinter(ZTEScopeForm aForm, ZTSHistoryFrame aFrame,
                                                      const std::vector<ZTSStoredSeries>& acrSeries,
                                                      ZTCHistoryPrinter::Out aOut);
