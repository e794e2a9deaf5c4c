// What a program is told that it cannot use.
#pragma once

#include <stdexcept>

/// Options or a configuration that cannot be used, in one line: the program ends with status 2.
class ZTCServiceUsage : public std::runtime_error {
    using std::runtime_error::runtime_error;
};
/// The help or the version was asked for: what is to be shown.
class ZTCServiceShown : public std::runtime_error {
    using std::runtime_error::runtime_error;
};
