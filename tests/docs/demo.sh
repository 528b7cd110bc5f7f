# Runs the demo with the build under test, and finds in what it prints the lines that README.md shows of it.
# SPDX-License-Identifier: Apache-2.0
# shellcheck source=common.sh
. "$(dirname "$0")/common.sh"

[ "$has_tools" = ON ] || { echo "This build has no programs to show"; exit 77; }
# shellcheck disable=SC2016
"$source/tests/in-namespace" sh -c 'test -z "${CITP_TEST_NO_NAMESPACE:-}"' ||
    { echo "This host forbids namespaces: the demo would meet the servers of other tests"; exit 77; }
output=$work/demo
CITP_DEMO_BUILD=$build_tree CITP_DEMO_OUTPUT=$output "$source/tests/in-namespace" "$source/scripts/demo" --built

take_apart "$work/demo-blocks"
shown=$(grep -l '"Stage 2"' "$work/demo-blocks/README.md"/*.text | head -n 1)
[ -s "$shown" ] || fail "README.md shows nothing of the demo"
# The times of day before them are left out of the document.
sed -E 's/^[0-9:.]+ +//; s/ +/ /g' "$output/console.log" >"$work/demo-printed"
while read -r line; do
    grep -qxF -- "$line" "$work/demo-printed" || { cat "$work/demo-printed"; fail "the demo does not print: $line"; }
done < <(sed -E 's/ +/ /g' "$shown")
echo "$(wc -l <"$shown") lines of the README were printed"
