// What the command line says of incidents, beside what it says of the history.
#pragma once

#include <string>

#include "ViewAsk.h"

struct ZTSIncidentOptions : ZTSIncidentChoice {
    std::string mShown;  ///< the id of the one that is shown, as it was written; empty: all that are meant
    std::string mId;     ///< of the one that something is asked of
    std::string mNote;   ///< of an acknowledgement
    bool mHasPseudonyms = false;
    std::string mOut;  ///< a file; empty: standard output
};
