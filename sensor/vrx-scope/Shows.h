// Who shows what is collected: a view on a terminal, lines elsewhere.
#pragma once

#include <string>

#include "Fetched.h"

/// Every function may throw ZTCScopeFailure: the output cannot be written.
class ZTCShow {
  public:
    ZTCShow() = default;
    virtual ~ZTCShow() = default;
    ZTCShow(const ZTCShow&) = delete;
    ZTCShow& operator=(const ZTCShow&) = delete;

    /// Records that are new.
    virtual void add(const ZTSFetched& acrFetched) = 0;
    /// What there is to say of the agent from now on. aIsThere: it answers.
    virtual void tell(const std::string& acrText, bool aIsThere) = 0;
    /// To be called now and then, and when the terminal's size is another.
    virtual void draw() {}
    /// Nothing more comes.
    virtual void finish() {}
};
