#!/bin/bash
# Tests scripts/hostile: it finds each way in which a program can misbehave, and nothing in the simulated media server.
# usage: hostile_test.sh SOURCES MEDIASERVER PRESET
# SPDX-License-Identifier: Apache-2.0
set -euo pipefail
sources=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir "$work/tmp"
export TMPDIR=$work/tmp
ln -s "$2" "$work/citp-mediaserver"
ln -s /nowhere "$work/citp-console"
hostile=("$sources/scripts/hostile" --programs "$work" --preset "$3")

# expect_find TEXT KIND SCRIPT: whether it finds TEXT when citp-console is this shell script.
expect_find()
{
    local output status=0
    rm -f "$work/citp-console"
    printf '#!/bin/sh\n%s\n' "$3" >"$work/citp-console"
    chmod +x "$work/citp-console"
    output=$("${hostile[@]}" --kinds "$2" --case 1 2>&1) || status=$?
    if [ "$status" -ne 1 ] || ! grep -qE "FOUND: .*$1" <<<"$output" || ! grep -qF -- "--case 1 --kinds $2" <<<"$output"; then
        printf 'not found: %s; exit status %s, and:\n%s\n' "$1" "$status" "$output"
        exit 1
    fi
}

status=0
"${hostile[@]}" --kinds requests --seconds 5 || status=$?
[ "$status" -eq 0 ] || exit "$status"
expect_find 'ends with status 3' captures 'exit 3'
expect_find 'ends with status -11' captures 'kill -SEGV $$'
expect_find 'prints a control character at offset 4 of decode-0.err' captures 'printf "line\033[2J" >&2'
expect_find "prints 'Sanitizer'" captures 'echo "ERROR: AddressSanitizer: heap-use-after-free" >&2'
expect_find 'a/b/escaped was written or removed' captures 'echo >../escaped'
expect_find 'writes more than 64 MiB' captures 'exec yes'
expect_find 'console has not ended 30 s after SIG' streams 'trap "" TERM INT; exec sleep 600'
if [ "$3" = release ]; then
    expect_find 'takes [0-9]+ MiB' captures 'exec python3 -c "print(len(b\"x\" * 400000000))"'
fi
echo "every kind of misbehaviour was found"
