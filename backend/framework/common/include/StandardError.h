// Standard error, for those who must not wait for it: a terminal that is stopped, a pipe that nobody reads.
#pragma once

#include <cstddef>

/// Shows it as far as standard error takes it within the time: 0: at once. Any thread. A file is written to
/// as any other: its disk may be waited for.
void showOnStandardError(const char* apBytes, std::size_t aSize, int aMilliseconds);

/// One line: the program's name, a colon, the text. At once.
void tellOnStandardError(const char* apName, const char* apText);
