// Who is let in: by which name the program is called, and with which token.
#pragma once

#include <string>
#include <string_view>
#include <vector>

/// A name as --allow-host takes it: letters, digits, dots and dashes, 253 at most.
bool isWebHostName(std::string_view aName);

/// Whether a request that calls the program so, with a port behind it or none, is answered: an address
/// ("10.0.0.1", "[fe80::1]"), localhost, or one of the names, whatever the case. A page of another name's
/// that leads a browser here by its own name server is not.
bool isAllowedHost(std::string_view aHost, const std::vector<std::string>& acrNames);

/// A path and what stands behind "?", as they are sent: begins with "/", of visible ASCII, without "#".
bool isPlainTarget(std::string_view aTarget);

/// The words that let somebody in. A plain value: any thread.
class ZTCWebTokens {
  public:
    static constexpr std::size_t Longest = 512;  ///< bytes
    static constexpr std::size_t Most = 100;     ///< lines

    /// Without any, nobody is asked for one.
    ZTCWebTokens() = default;
    /// A line each; blanks around them, empty lines and what begins with # are left out. Throws
    /// std::runtime_error with one line: none is there, one is shorter than 16 bytes, too long or holds
    /// blanks, or there are too many.
    explicit ZTCWebTokens(std::string_view aText);

    bool isAsked() const { return !mTokens.empty(); }
    /// acrAuthorization: the header, "Bearer ...". How long it takes says nothing of how much of it is right,
    /// nor of which line.
    bool isRight(std::string_view aAuthorization) const;

  private:
    std::vector<std::string> mTokens;
};
