// Broken invariants are our own bugs: they end the process with status 1, and are never thrown.
#pragma once

/// Writes one record at ZTLL_Highest, "Assertion [ %s ] failed", and ends the process with status 1. The
/// first thread to fail is the one that is told of; others that fail meanwhile wait here for the end. No
/// destructor of an object with static lifetime runs, because other threads may still use it.
[[noreturn]] void failAssertion(const char* apText, unsigned int aLine, const char* apFunction,
                                const char* apFile) noexcept;

/// Ends the process: has what is pending in the log written, and leaves by quick_exit, so that no static
/// object, of ours or of a library, is destroyed under a thread that still uses it. Streams are not flushed:
/// their locks may be held by a thread that hangs.
[[noreturn]] void leaveProcess(int aStatus) noexcept;

/// Asserts a condition whose record carries the condition's own text, a stated line and a file.
#define ZT_ASSERT(condition, line, file) ZT_ASSERT_NAMED(condition, #condition, line, file)

/// The same where the text of the record is another than the condition's.
#define ZT_ASSERT_NAMED(condition, text, line, file)   \
    do {                                               \
        if (!(condition)) [[unlikely]] {               \
            failAssertion(text, line, __func__, file); \
        }                                              \
    } while (false)
