# Installs the build under test into a prefix of its own, which the other packaging tests use.
# SPDX-License-Identifier: Apache-2.0
# shellcheck source=common.sh
. "$(dirname "$0")/common.sh"

rm -rf "${prefix:?}"
"$cmake" --install "$build_tree" --prefix "$prefix"
[ -e "$prefix/$libdir/libcitp-qt$qt_major.so" ] || fail "the library is not under its name"
if find "$prefix/include" -name '*_p.h' | grep .; then
    fail "private headers are installed"
fi
if grep -r "$source\|$build_tree" "$prefix/$libdir/cmake"; then
    fail "the package names folders of this machine"
fi
