// Turns a record of a ring into its line. See Log.h for the line's form.
//
// Used by one thread at a time (LogDrain.h). Most of a line stood in an earlier one already,
// so it is kept: the text of the time, of process and thread, and, of the places that logged lately, all
// that does not depend on the arguments.
#pragma once

#include <cstddef>
#include <cstdint>

#include "LogRecord.h"

class ZTCLogLine {
  public:
    static constexpr std::size_t MaxLine = 20 * 1024;  ///< bytes that format() writes at the most
    static constexpr std::size_t MaxText = 16 * 1024;  ///< of the record's text among them

    /// Writes the line with its line end to apOut, which has MaxLine bytes, and returns the end of it.
    /// Control characters in the text become \xNN; one line end at the end of the text is dropped.
    char* format(const ZTCLogRecord& acrRecord, char* apOut);

  private:
    static constexpr std::size_t Slack =
        64;  // texts are copied in blocks, so they may be read a little beyond
    static constexpr std::size_t MaxPrefix = 192;
    static constexpr std::size_t MaxPieces = ztlog::MaxArguments + 1;

    // Text, and the conversion behind it; behind the last there is none.
    struct Piece {
        std::size_t mLength;
        ztlog::Conversion mConversion;
    };
    struct Place {
        ztlog::Site mSite{};
        std::size_t mPieceCount = 0;
        Piece mPieces[MaxPieces]{};  // the first begins with tag, file, line and function
        char mText[MaxPrefix + ztlog::MaxFormat + Slack]{};
    };

    char* appendTime(std::uint64_t aStamp, char* apOut);
    char* appendThread(std::uint32_t aThread, char* apOut);
    const Place& placeOf(const ztlog::Site& acrSite);
    static void fill(Place& arPlace, const ztlog::Site& acrSite);

    std::uint64_t mMicrosecond = ~std::uint64_t{0};  ///< whose text is kept
    char mTimeText[32]{};
    std::uint32_t mThread = 0;  ///< whose text is kept; another one after a fork
    std::size_t mThreadLength = 0;
    char mThreadText[32]{};
    Place mPlaces[64]{};
};
