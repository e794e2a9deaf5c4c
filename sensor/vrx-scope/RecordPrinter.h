// Records as they are printed: tables, JSON, or a line each.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "Fetched.h"

enum class ZTEScopeForm : unsigned char { Table, Json, JsonLines };

/// Prints answers, one after the other. The text goes out in pieces of whole lines as it is made, so that
/// memory is bounded by the largest answer, however many come. One thread.
class ZTCRecordPrinter {
  public:
    /// Gets the pieces. What it throws comes out of the functions below.
    using Out = std::function<void(const std::string&)>;

    explicit ZTCRecordPrinter(Out aOut) : mOut(std::move(aOut)) {}
    virtual ~ZTCRecordPrinter() = default;
    ZTCRecordPrinter(const ZTCRecordPrinter&) = delete;
    ZTCRecordPrinter& operator=(const ZTCRecordPrinter&) = delete;

    /// A document of JSON begins with what is known of all answers: each is announced before the first is
    /// added. Other forms need none of it.
    virtual void announce(const ZTSFetched& /*acrFetched*/) {}
    virtual void add(const ZTSFetched& acrFetched) = 0;
    /// Nothing more comes. Without it a document is not whole, and a piece may be missing.
    virtual void finish() { passOn(0); }

  protected:
    static constexpr std::size_t Piece = 64 * 1024;

    /// Lets go of the text if it is as long as that.
    void passOn(std::size_t aLength = Piece) {
        if (mText.size() > aLength) {
            mOut(mText);
            mText.clear();
        }
    }

    std::string mText;

  private:
    const Out mOut;
};

/// All of a fetch, as the command answers it. acrCommand is what JSON says that it is of.
std::unique_ptr<ZTCRecordPrinter> makeRecordPrinter(ZTEScopeForm aForm, const std::string& acrCommand,
                                                    bool aInUtc, ZTCRecordPrinter::Out aOut);
/// A line a record, for those who look on while they come: for people, or of JSON.
std::unique_ptr<ZTCRecordPrinter> makeLinePrinter(ZTEScopeForm aForm, const std::string& acrCommand,
                                                  bool aInUtc, ZTCRecordPrinter::Out aOut);
