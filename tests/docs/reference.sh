# Makes the API reference. Doxygen's warnings are errors: an exported name without a description is one.
# SPDX-License-Identifier: Apache-2.0
# shellcheck source=common.sh
. "$(dirname "$0")/common.sh"

command -v doxygen >/dev/null || { echo "Doxygen is not installed here (scripts/setup docs): no reference is made"; exit 77; }
rm -rf "$work/reference"
"$source/scripts/docs" "$work/reference"
grep -q "$version" "$work/reference/html/index.html" || fail "the reference does not tell the version"
for name in classCITP_1_1citp__stack classCITP_1_1Msg__MSEX__SINF classOs_1_1Log_1_1Context; do
    [ -e "$work/reference/html/$name.html" ] || fail "the reference lacks $name"
done
if find "$work/reference/html" -name '*_p_8h*' | grep .; then
    fail "private headers are in the reference"
fi
