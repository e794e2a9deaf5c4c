// What somebody asks vrx-sn for, through the history.
#pragma once

#include <string>

#include "StoreRequest.h"

/// The longest text of one, in bytes.
inline constexpr std::size_t ZTLongestAskText = 1000;

/// Throws ZTCScopeUsage unless it is one line of text that can be shown.
void checkAskText(const char* apWhat, const std::string& acrText, std::size_t aLongest = ZTLongestAskText);

/// Whoever has logged in, as the kernel knows it, also behind su and sudo; else who runs this.
std::string whoAsks();

/// Whether this process may ask, and vrx-sn is there to do it: else throws ZTCScopeFailure. acrThing: "note".
void checkAsking(const std::string& acrStore, const std::string& acrThing);

/// Asks with the time of now and whoAsks(), and waits until vrx-sn has taken it. Returns the time. Throws
/// ZTCScopeFailure and ZTCStoreError.
ZTNanoseconds askThroughStore(const std::string& acrStore, ZTSStoreRequest aRequest,
                              const std::string& acrThing);
