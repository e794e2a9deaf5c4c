// Turns a record of a ring into its line. See Log.h for the line's form.
//
// Used by one thread at a time, under the log's drain lock: it keeps the text of the last second, of the
// process id and of the places that logged lately, because most of a line is the same as in an earlier one.
#pragma once

#include <cstddef>
#include <cstdint>

#include "LogRing.h"

class ZTCLogLine {
  public:
    static constexpr std::size_t MaxLine = 20 * 1024;  ///< bytes that format() writes at the most
    static constexpr std::size_t MaxText = 16 * 1024;  ///< of the record's text among them

    /// Writes the line with its line end to apOut, which has MaxLine bytes, and returns the end of it.
    /// Control characters in the text become \xNN; one line end at the end of the text is dropped.
    char* format(const ZTCLogRecord& acrRecord, char* apOut);

    /// The process's id is looked up anew: after a fork.
    void forgetProcess() { mProcessLength = 0; }

  private:
    struct Place {
        ztlog::Site mSite{};
        std::size_t mLength = 0;
        char mText[160]{};
    };

    char* appendTime(std::uint64_t aStamp, char* apOut);
    char* appendThread(std::uint32_t aThread, char* apOut);
    char* appendPlace(const ztlog::Site& acrSite, char* apOut);

    std::uint64_t mSecond = ~std::uint64_t{0};
    char mSecondText[32]{};
    std::size_t mProcessLength = 0;
    char mProcessText[16]{};
    Place mPlaces[64]{};
};
