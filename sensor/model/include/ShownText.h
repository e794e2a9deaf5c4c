// Text that somebody else has chosen, as it may be shown on a terminal.
#pragma once

#include <string>
#include <string_view>

/// The text with each byte that is not of printable UTF-8 as \xNN: control characters, those of the second
/// set (U+0080 to U+009F) too, and what is no UTF-8. aKeepLineEnds: a line end stays one.
std::string toShownText(std::string_view aText, bool aKeepLineEnds = false);
