// The history as it is printed: a table, a document of JSON, or a line of JSON each.
#pragma once

#include <functional>
#include <memory>

#include "HistoryItems.h"
#include "RecordPrinter.h"

/// "in maintenance (new firmware)"; empty for none. Fit to be shown.
std::string windowText(const ZTSWindow* apWindow);

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
