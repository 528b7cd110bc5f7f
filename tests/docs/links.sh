# Follows every link of the documents that leads to a file of the project or to a heading in one.
# SPDX-License-Identifier: Apache-2.0
# shellcheck source=common.sh
. "$(dirname "$0")/common.sh"

# anchors FILE: the headings of a document as links name them.
anchors()
{
    # shellcheck disable=SC2016
    sed -nE '/^```/,/^```/d; s/^#+ +//p' "$1" | tr '[:upper:]' '[:lower:]' | sed -E 's/[^a-z0-9 _-]//g; s/ /-/g'
}

failed=0 links=0
for document in $(documents); do
    while IFS=: read -r line link; do
        links=$((links + 1))
        file=${link%%#*} heading=
        [[ $link != *#* ]] || heading=${link#*#}
        target=$source/$document
        [ -z "$file" ] || target=$source/$(dirname "$document")/$file
        if [ ! -e "$target" ]; then
            echo "$document:$line: there is no $file"
            failed=1
        elif [ -n "$heading" ] && ! grep -qxF -- "$heading" <<<"$(anchors "$target")"; then
            echo "$document:$line: there is no heading for $link"
            failed=1
        fi
    done < <(awk '
        /^ *```/ { inside = !inside }
        !inside { while (match($0, /\]\([^)]*\)/)) { print FNR ":" substr($0, RSTART + 2, RLENGTH - 3); $0 = substr($0, RSTART + RLENGTH) } }
        ' "$source/$document" | grep -vE '^[0-9]+:[a-z]+://' || true)
done
[ $failed = 0 ] || fail "see the lines above"
[ $links -gt 0 ] || fail "no links are found"
echo "$links links"
