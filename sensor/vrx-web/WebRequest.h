// What a request asks for.
#pragma once

#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "ViewAsk.h"

/// One parameter of the address, decoded.
struct ZTSWebParameter {
    std::string mName;
    std::string mValue;
};

/// A plain value: any thread.
struct ZTSWebRequest {
    std::string mPath;  ///< as it was sent, without what stands behind "?": nothing in it is decoded
    std::vector<ZTSWebParameter> mParameters;
    std::string mLastEventId;
};

/// The request cannot be answered: 400, with one line that says why.
class ZTCWebRefusal : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// What stands behind "?". Names and values with %XX and + are decoded. Throws ZTCWebRefusal: too many, too
/// long, no UTF-8, or a control character.
std::vector<ZTSWebParameter> readWebParameters(std::string_view aQuery);

// What a request says by its parameters. One without a value says nothing.

/// Empty: it is not there.
const std::string& textOf(const ZTSWebRequest& acrRequest, std::string_view aName);
std::vector<std::string> textsOf(const ZTSWebRequest& acrRequest, std::string_view aName);
/// From 1 to aMost; aElse if it is not there. Throws ZTCWebRefusal.
std::uint64_t numberOf(const ZTSWebRequest& acrRequest, std::string_view aName, std::uint64_t aElse,
                       std::uint64_t aMost);
/// Of one of several names; the first one if it is not there. Throws ZTCWebRefusal.
std::string_view choiceOf(const ZTSWebRequest& acrRequest, std::string_view aName,
                          std::span<const std::string_view> aChoices);
/// since, until, kind, initiator, target, fabric and host. How many is not said: each has its own limit.
ZTSHistoryAsk historyAskOf(const ZTSWebRequest& acrRequest);
