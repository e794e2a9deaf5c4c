#!/usr/bin/env bash
# memory.sh [BUILD_DIR]: runs the agent once for each allocation of a whole run, with that one and all behind it failing,
# and again with that one alone, over both providers. Prints what became of the runs. A fault is an end by a signal, a
# hang, or a status that nothing explains: then it fails.
set -euo pipefail
export ZT_TORTURE=all
exec "${1:-$(dirname "$0")/../../build/release}/tests/zt-tests" --gtest_filter='Scarcity.OfMemory*' --gtest_brief=1
