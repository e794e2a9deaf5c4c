// What a request asks for.
#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

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
