// Where the program's output goes.
#pragma once

#include <string>

/// Whether standard output is a terminal.
bool isTerminal();
/// Whether it may be coloured: a terminal that can, and NO_COLOR not set.
bool isColoured();

struct ZTSTerminalSize {
    unsigned int mColumns;
    unsigned int mRows;
};
/// Its size now.
ZTSTerminalSize getTerminalSize();

/// Writes to standard output, at once and wholly. Nothing that a terminal would act on gets through but line
/// ends and bold(); in a line, text from elsewhere goes through toShownText before, so that it stays in it.
/// Waits for who reads it, but not when a signal that is blocked asks the program to end. Throws
/// ZTCScopeFailure.
void put(const std::string& acrText);

/// The same to standard error, as one line of the program, and lines behind it.
void complain(const std::string& acrText, const std::string& acrLines = "");

/// Lines as put() would show them, for a file: without what bold() makes.
std::string plainLines(std::string aText);

/// The text in bold, where there is colour.
std::string bold(const std::string& acrText);

/// A second screen of the terminal, which is given back as it was.
class ZTCScreen {
  public:
    ZTCScreen();
    ~ZTCScreen();
    ZTCScreen(const ZTCScreen&) = delete;
    ZTCScreen& operator=(const ZTCScreen&) = delete;

    /// Shows lines in place of those before; what is too long or too much for the terminal is cut.
    static void show(const std::string& acrLines);
};
