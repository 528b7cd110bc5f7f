# Builds and runs an application that says find_package(Citp) and links Citp::citp, with Qt found before and without.
# SPDX-License-Identifier: Apache-2.0
# shellcheck source=common.sh
. "$(dirname "$0")/common.sh"

# run NAME QT_FIRST [OPTION...]: it must build, and run with the Qt of the installed library.
run()
{
    local folder=$work/application-$1 first=$2
    shift 2
    configure "$here/application" "$folder" "$prefix" -DQT_FIRST="$first" "$@"
    build "$folder"
    "$folder/application" | tee "$folder/output"
    grep -q "^Qt $qt_major\." "$folder/output" || fail "it runs with another Qt than $qt_major"
    grep -qx good "$folder/output" || fail "it does not say that all is good"
}

run alone 0
run qt-first "$qt_major" -DWANTED_VERSION="$version"

# refuse NAME TEXT [OPTION...]: configuring must fail and say TEXT.
refuse()
{
    local output=$work/application-$1.log text=$2 name=$1
    shift 2
    if configure "$here/application" "$work/application-$name" "$prefix" "$@" >"$output" 2>&1; then
        fail "$name: configured"
    fi
    # CMake breaks its messages into lines.
    tr -s '\n ' ' ' <"$output" | grep "$text" >/dev/null || { cat "$output"; fail "$name: does not say '$text'"; }
}

refuse other-generation "installed here for Qt $qt_major, and Qt $other_qt is wanted" -DCITP_QT_MAJOR="$other_qt"
refuse later-version "compatible with requested version \"$((${version%%.*} + 1))" \
    -DWANTED_VERSION="$((${version%%.*} + 1))"
