#!/usr/bin/env bash
# The project speaks for itself: its files, their names and its commit messages point at nothing that a reader
# of the repository cannot see. The patterns are written so that they do not match themselves.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

patterns=(
    '\bPart [1-5]\.[0-9]'
    '[Ss]pecification'
    '\bspec\.md'
    '\bdesign\.md'
    '\bmodels\.md'
    '(^|[^A-Za-z])shared[/]'
    '/wor[k]/'
    '\b[Ii]ssue #?[0-9]'
    '(^|[ (])#[0-9]{1,4}\b'
)
pattern=$(
    IFS='|'
    printf '%s' "${patterns[*]}"
)
failed=0

# report WHERE: what standard input holds, if anything.
report() {
    local lines
    lines=$(cat)
    if [[ -n $lines ]]; then
        printf '%s:\n%s\n' "$1" "$lines"
        failed=1
    fi
}

# matches COMMAND...: its output; that it finds nothing is no failure of it.
matches() {
    local status=0
    "$@" || status=$?
    ((status <= 1))
}

report 'words in a file' <<<"$(matches git grep -nIE --untracked -e "$pattern" -- ':!issues')"
report 'words in the name of a file' <<<"$(git ls-files -co --exclude-standard -- ':!issues' | matches grep -E "$pattern")"
report 'words in a commit message' <<<"$(git log --format='%h %B' | matches grep -E "$pattern")"
exit "$failed"
