# Builds and runs the test application with nothing but what pkg-config says.
# SPDX-License-Identifier: Apache-2.0
# shellcheck source=common.sh
. "$(dirname "$0")/common.sh"

[ -z "$system_package" ] || { echo "The system library is not the bundled one: its own package knows its flags"; exit 77; }
export PKG_CONFIG_PATH=$prefix/$libdir/pkgconfig${PKG_CONFIG_PATH:+:$PKG_CONFIG_PATH}
package=citp-qt$qt_major
flags=$(pkg-config --cflags --libs "$package" "$package = $version") || fail "pkg-config does not find $package $version"
[[ $flags == *-lQt${qt_major}Network* ]] || fail "Qt does not come along: $flags"
! pkg-config --exists "$package > $version" || fail "a later version is found too"
# shellcheck disable=SC2086 # flags are words
"$compiler" -std=c++17 "$here/application/main.cpp" -o "$work/application-pkg-config" $flags \
    -Wl,-rpath,"$prefix/$libdir"
"$work/application-pkg-config" | tee "$work/application-pkg-config.output"
grep -q "^Qt $qt_major\." "$work/application-pkg-config.output" || fail "it runs with another Qt than $qt_major"
grep -qx good "$work/application-pkg-config.output" || fail "it does not say that all is good"
