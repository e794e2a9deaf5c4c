// What the command line says of incidents, beside what it says of the history.
#pragma once

#include <string>
#include <vector>

struct ZTSIncidentOptions {
    std::string mShown;  ///< the id of the one that is shown, as it was written; empty: all that are meant
    std::string mId;     ///< of the one that something is asked of
    std::vector<std::string> mStates;
    std::vector<std::string> mClasses;
    bool mIsAll = false;  ///< however long ago they were closed
    std::string mNote;    ///< of an acknowledgement
    bool mHasPseudonyms = false;
    std::string mOut;  ///< a file; empty: standard output
};
