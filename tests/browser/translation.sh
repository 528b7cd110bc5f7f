#!/bin/bash
# Whether the German translation has all texts of the sources, and no others: translation.sh LUPDATE SOURCES
# SPDX-License-Identifier: Apache-2.0
set -euo pipefail
export LC_ALL=C.UTF-8
lupdate=$1
cd "$2"
file=tools/browser/translations/citp-browser_de.ts
update=("$lupdate" -no-obsolete -locations none tools/browser tools/shared client -ts)
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cp "$file" "$folder/de.ts"
"${update[@]}" "$folder/de.ts" >"$folder/log" 2>&1 || { cat "$folder/log"; exit 1; }
status=0
# The first text of each message without a finished translation, in the file as in its update.
unfinished() {
    awk '/<source>/ { source = $0; sub(/.*<source>/, "", source); sub(/<\/source>.*/, "", source) }
         /<translation( type=|>[[:space:]]*<\/translation>|\/>)/ { print "  " source }' "$1"
}
if [ -n "$(unfinished "$folder/de.ts")" ]; then
    echo "these texts have no finished translation:"
    unfinished "$folder/de.ts"
    status=1
fi
# Without those that the sources do not have any more.
before=$(grep -c '<source>' "$file") after=$(grep -c '<source>' "$folder/de.ts")
if [ "$before" -ne "$after" ]; then
    echo "the file has $before texts, the sources have $after"
    status=1
fi
# Such texts would be looked up under another name than that in the file.
if grep -iE 'warning|lacks|cannot' "$folder/log"; then
    status=1
fi
if [ "$status" -ne 0 ]; then
    echo "to bring the file up to date: ${update[*]} $file"
    echo "then translate what is unfinished there, and remove its 'type'"
fi
exit "$status"
