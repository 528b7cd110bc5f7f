# Installs the other Qt generation's build into the same prefix: applications on either Qt find theirs.
# SPDX-License-Identifier: Apache-2.0
# shellcheck source=common.sh
. "$(dirname "$0")/common.sh"

both=$work/both-prefix
rm -rf "$both"
"$cmake" --install "$build_tree" --prefix "$both"
if ! configure "$source" "$work/other-qt" "" -DCITP_QT_MAJOR="$other_qt" -DCMAKE_INSTALL_LIBDIR="$libdir" \
    -DCITP_BUILD_TOOLS=OFF -DCITP_BUILD_TESTS=OFF >"$work/other-qt.log" 2>&1; then
    grep -q "Qt$other_qt" "$work/other-qt.log" || { cat "$work/other-qt.log"; fail "cannot be configured"; }
    echo "Qt $other_qt is not installed here: the two generations are not tried in one prefix"
    exit 77
fi
cp "$both/$libdir/cmake/Citp/CitpConfig.cmake" "$work/first-config"
build "$work/other-qt"
"$cmake" --install "$work/other-qt" --prefix "$both"
cmp "$work/first-config" "$both/$libdir/cmake/Citp/CitpConfig.cmake" || fail "the common package file differs"

# expect NAME QT QT_FIRST [OPTION...]
expect()
{
    local folder=$work/both-$1 wanted=$2 first=$3
    shift 3
    configure "$here/application" "$folder" "$both" -DQT_FIRST="$first" "$@"
    build "$folder"
    "$folder/application" | tee "$folder/output"
    grep -q "^Qt $wanted\." "$folder/output" || fail "Qt $wanted was expected"
    grep -qx good "$folder/output" || fail "it does not say that all is good"
}

expect newest 6 0
expect qt5-first 5 5
expect qt6-first 6 6
expect qt5-asked 5 0 -DCITP_QT_MAJOR=5

if [ -z "$system_package" ]; then
    for qt in 5 6; do
        found=$(PKG_CONFIG_PATH=$both/$libdir/pkgconfig pkg-config --libs "citp-qt$qt")
        [[ $found == *"-lcitp-qt$qt "* && $found == *"-lQt${qt}Core"* ]] || fail "pkg-config for Qt $qt says: $found"
    done
fi
