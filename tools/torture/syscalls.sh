#!/usr/bin/env bash
# syscalls.sh [BUILD_DIR]: the same as memory.sh for system calls: each call of each kind fails alone, and with all behind
# it, with an I/O error, for want of memory and for want of descriptors.
set -euo pipefail
export ZT_TORTURE=all
exec "${1:-$(dirname "$0")/../../build/release}/tests/zt-tests" --gtest_filter='Scarcity.OfWhat*' --gtest_brief=1
