# Writes the software bill of materials of the installed build: it must name every library that is linked, and a bill that
# is not whole must be refused.
# SPDX-License-Identifier: Apache-2.0
# shellcheck source=common.sh
. "$(dirname "$0")/common.sh"

command -v dpkg-query >/dev/null || { echo "This is no Debian system"; exit 77; }
bill=$work/citp.cdx.json
"$source/scripts/make-sbom" --prefix "$prefix" --output "$bill"
cp "$bill" "$bill.first"
"$source/scripts/make-sbom" --prefix "$prefix" --output "$bill" >/dev/null
cmp "$bill" "$bill.first" || fail "a second bill of the same is another one"

# has TEXT
has() { grep -qF -- "$1" "$bill" || fail "the bill does not have $1"; }
has "\"version\": \"$version\""
wanted=(libc6 libstdc++6 libmnl0)
[ "$qt_major" = 6 ] && wanted+=(libqt6core6 libqt6network6) || wanted+=(libqt5core5a libqt5network5)
for package in "${wanted[@]}"; do
    # Newer releases call some packages with t64.
    its_version=$(dpkg-query -W -f='${Version}\n' "$package" "${package}t64" 2>/dev/null | head -n 1 || true)
    [ -n "$its_version" ] || fail "there is no package $package here"
    grep -qE "\"name\": \"${package//+/\\+}(t64)?\"" "$bill" || fail "the bill does not name $package"
    has "\"version\": \"$its_version\""
done
# A dependency without its component.
sed '0,/"bom-ref": "pkg:deb/s//"bom-ref": "gone:deb/' "$bill.first" >"$bill"
if "$source/scripts/make-sbom" --check "$bill" 2>"$bill.error" || ! grep -q "nothing is called pkg:deb" "$bill.error"; then
    fail "a bill with a component less is not refused"
fi
