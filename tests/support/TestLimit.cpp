// Every test has a limit of its own: one that hangs says which it is, and ends the program.
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstring>

#include "TestSupport.h"

namespace {

constexpr unsigned int sSeconds = ZTIsSanitized ? 240 : 50;

char sText[256];

void sEnd(int /*aSignal*/) {
    static_cast<void>(write(STDERR_FILENO, sText, strlen(sText)));
    abort();  // its children end with it
}

class Limit : public ::testing::EmptyTestEventListener {
    void OnTestStart(const ::testing::TestInfo& acrTest) override {
        snprintf(sText, sizeof sText, "%s.%s hangs: it has taken %u seconds\n", acrTest.test_suite_name(),
                 acrTest.name(), sSeconds);
        signal(SIGALRM, sEnd);
        alarm(sSeconds);
    }
    void OnTestEnd(const ::testing::TestInfo& /*acrTest*/) override { alarm(0); }
};

// Owned by the framework, as long as the program runs.
[[maybe_unused]] const bool sIsSet = [] {
    ::testing::UnitTest::GetInstance()->listeners().Append(new Limit);
    return true;
}();

}  // namespace
