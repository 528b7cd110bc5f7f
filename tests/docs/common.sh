# What the tests of the documents share: the build's settings, and the documents taken apart into their code blocks.
# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash source-path=SCRIPTDIR/../packaging
# shellcheck source=../packaging/common.sh
. "$(dirname "${BASH_SOURCE[0]}")/../packaging/common.sh"
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)

# Every document that users and developers read.
documents()
{
    (cd "$source" && ls README.md CONTRIBUTING.md SECURITY.md CHANGELOG.md docs/*.md examples/*.md 2>/dev/null) || true
}

# take_apart FOLDER: the blocks of each document, in FOLDER/DOCUMENT/LINE.KIND.
take_apart()
{
    local document failed=0
    rm -rf "${1:?}"
    for document in $(documents); do
        mkdir -p "$1/$document"
        awk -v folder="$1/$document" -v name="$document" -f "$here/blocks.awk" "$source/$document" || failed=1
    done
    [ $failed = 0 ] || fail "see the lines above"
}

# where BLOCK: the document and line of a block, for messages.
where()
{
    local document line
    document=$(dirname "$1")
    line=$(basename "${1%.*}" | sed 's/^0*//')
    echo "${document#*/blocks/}:$line"
}
