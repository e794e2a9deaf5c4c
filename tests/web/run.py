#!/usr/bin/python3
"""Runs the browser's tests: all, those that are named, or with --small one view with one incident."""

import os
import sys
import time
import unittest

sys.dont_write_bytecode = True
HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, HERE)

import case  # noqa: E402  (the path comes first)

SMALL = ["now_test.Now.test_the_page_says_what_the_api_says"]


class Result(unittest.TextTestResult):
    """A line a test, with how long it took."""

    def startTest(self, test):
        self.begin = time.monotonic()
        super().startTest(test)

    def addSuccess(self, test):
        unittest.TestResult.addSuccess(self, test)
        self.stream.writeln(f"ok ({time.monotonic() - self.begin:.1f} s)")

    def addFailure(self, test, err):
        self.leave_picture(test)
        super().addFailure(test, err)

    def addError(self, test, err):
        self.leave_picture(test)
        super().addError(test, err)

    @staticmethod
    def leave_picture(test):
        """What the browser shows: an aid, if it can be had."""
        if "browser" in case.shared:
            try:
                case.shared["browser"].picture("failed-" + test.id().rsplit(".", 1)[-1], rest=False)
            except Exception as error:
                print("no picture:", error)


def main():
    names = SMALL if sys.argv[1:] == ["--small"] else sys.argv[1:]
    loader = unittest.defaultTestLoader
    tests = loader.loadTestsFromNames(names) if names else loader.discover(HERE, "*_test.py")
    try:
        done = unittest.TextTestRunner(verbosity=2, resultclass=Result, stream=sys.stdout).run(tests)
    finally:
        case.end()
    return 0 if done.wasSuccessful() and done.testsRun > 0 else 1


if __name__ == "__main__":
    sys.exit(main())
