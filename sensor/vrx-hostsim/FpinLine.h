// An FPIN as a line says it, and as a fabric sends it.
#pragma once

#include <functional>
#include <vector>

#include "HostWords.h"
#include "Wwn.h"

/// What the kernel counts for a descriptor: in the statistics of the port that it is about, "fpin_li".
struct ZTSFpinCount {
    std::vector<ZTSWwn> mPorts;  ///< none: the local port's
    std::vector<const char*> mNames;
};

struct ZTSFpinLine {
    std::vector<unsigned char> mEls;
    std::vector<ZTSFpinCount> mCounts;
};

/// "link-integrity port=array1-A0 event=loss_of_signal count=5 congestion event=credit_stall": a word begins
/// a descriptor, what follows are its fields. aName makes a world wide name of what a port is called.
ZTSFpinLine readFpinLine(ZTCHostWords& arWords, const std::function<ZTSWwn(const std::string&)>& acrName);
