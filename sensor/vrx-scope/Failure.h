// How the program itself fails. Each text is one line that says what to do.
#pragma once

#include <stdexcept>

/// What was asked for cannot be done: the program ends with status 1.
class ZTCScopeFailure : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// Nobody reads the output any more.
class ZTCScopeClosed : public ZTCScopeFailure {
  public:
    using ZTCScopeFailure::ZTCScopeFailure;
};

/// What was asked for is not understood: status 2.
class ZTCScopeUsage : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};
