#!/usr/bin/env bash
# What the documents name is there, every header says what it is, and mandoc finds no fault in the manual pages.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

failed=0
report() {
    printf '%s\n' "$1"
    failed=1
}

mapfile -t files < <(git ls-files -co --exclude-standard | while IFS= read -r file; do [[ ! -f $file ]] || printf '%s\n' "$file"; done)
((${#files[@]} > 0)) || report 'no files: not a git checkout?'
printf -v all '/%s\n' "${files[@]}"

# prose FILE: without what stands between code fences, and without code in a line.
prose() {
    # shellcheck disable=SC2016
    sed -e '/^ *```/,/^ *```/d' -e 's/`[^`]*`//g' "$1"
}

# Every relative link leads to something.
links() {
    local document=$1 target
    while IFS= read -r target; do
        target=${target%%#*}
        if [[ -n $target && $target != *:* && ! -e $(dirname "$document")/$target ]]; then
            report "$document: the link to $target leads nowhere"
        fi
    done < <(prose "$document" | grep -oE '\]\([^) ]+' | sed 's/^](//')
}

# Every file of ours that is named exists: a name with its whole path, or the end of one. What stands in angle
# brackets is the system's.
names() {
    local document=$1 name
    while IFS= read -r name; do
        name=${name#./}
        while [[ $name == ../* ]]; do
            name=${name#../}
        done
        if [[ ! -e $name ]] && [[ $all != *"/$name"$'\n'* ]]; then
            report "$document: there is no $name"
        fi
    done < <(sed 's/<[^>]*>//g' "$document" |
        grep -oE '\b(backend|bench|docs|sensor|tests|tools)/[A-Za-z0-9_./-]*[A-Za-z0-9/]|[A-Za-z0-9_./-]+\.(cpp|h|c|sh|cmake)\b' |
        sort -u)
}

for file in "${files[@]}"; do
    case $file in
        issues/*) ;;
        *.md)
            links "$file"
            names "$file"
            ;;
        backend/*.h)
            read -r line <"$file" || line=
            [[ $line == //* || $line == '/*'* ]] || report "$file: does not begin with a comment on what it is"
            ;;
        packaging/man/*)
            mandoc -T lint -W warning "$file" || failed=1
            ;;
    esac
done
exit "$failed"
