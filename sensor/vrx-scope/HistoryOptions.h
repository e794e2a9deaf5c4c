// What the command line says of the history, and of all else that the store has.
#pragma once

#include <string>
#include <vector>

#include "ViewAsk.h"

struct ZTSHistoryOptions : ZTSHistoryAsk {
    ZTSHistoryOptions() { mpDash = "--"; }

    std::string mStore = "/var/lib/vrx-sn/history.db";
    std::string mIncident;  ///< its id; empty: any, or none
    bool mFollows = false;
    bool mIsSummary = false;

    bool mIsFull = false;            ///< each path of each
    std::vector<std::string> mNote;  ///< its words
    std::string mAbout;              ///< what the note is about
};
