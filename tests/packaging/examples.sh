# Builds the examples against the installed package and runs them with a simulated media server: what each prints is
# what it is there to show.
# SPDX-License-Identifier: Apache-2.0
# shellcheck source=common.sh
. "$(dirname "$0")/common.sh"

examples="servers thumbnails every_signal own_system"
if [ "${2:-}" != --in-namespace ]; then
    [ "$has_tools" = ON ] || { echo "The programs are left out of this build: no server to run the examples with"; exit 77; }
    [ -z "$system_package" ] || { echo "The system library is not the bundled one: no example replaces it"; exit 77; }
    for name in $examples; do
        configure "$source/examples/$name" "$work/example-$name" "$prefix" -DCITP_QT_MAJOR="$qt_major" \
            -DCMAKE_CXX_FLAGS="-Wall -Wextra -Wconversion -Werror"
        build "$work/example-$name"
    done
    # Concurrently, if each has a namespace of its own: they spend their time waiting.
    apart=$("$source/tests/in-namespace" printenv CITP_TEST_NAMESPACE || true)
    declare -A running
    for name in $examples; do
        "$source/tests/in-namespace" bash "$0" "$1" --in-namespace "$name" >"$work/example-$name/report" 2>&1 &
        running[$name]=$!
        [ -n "$apart" ] || wait "${running[$name]}" || true
    done
    failed=
    for name in $examples; do
        wait "${running[$name]}" || failed+=" $name"
        cat "$work/example-$name/report"
    done
    [ -z "$failed" ] || fail "see above:$failed"
    exit 0
fi

# run NAME SECONDS SERVER_OPTION... -- ENVIRONMENT...: the example with a server, each for a bounded time.
run()
{
    local name=$1 log=$work/example-$1/output seconds=$2 options=()
    shift 2
    while [ "$1" != -- ]; do options+=("$1"); shift; done
    shift
    "$prefix/bin/citp-mediaserver" --adapter lo --interval 200 --seconds 60 "${options[@]}" >"$log.server" 2>&1 &
    local server=$!
    env ARTNET_ADAPTER=lo "$@" timeout 60 "$work/example-$name/$name" "$seconds" >"$log" 2>"$log.errors" ||
        { cat "$log" "$log.errors"; fail "$name ended with $?"; }
    kill "$server"
    wait "$server" || true
    echo "---- $name"
    cat "$log"
}

# expect NAME PATTERN: a line of the example's output is like that.
expect()
{
    grep -qE -- "$2" "$work/example-$1/output" || fail "$1 prints no line like '$2'"
}

test_servers()
{
    run servers 10 --name Stage --
    expect servers '^up    127\.0\.0\.2:4811  "Stage"  Citp Simulator$'
    expect servers '^      127\.0\.0\.2:4811  first library 1,1,0,0  ".+"  [1-9][0-9]* elements$'
}

test_thumbnails()
{
    mkdir -p "$work/example-thumbnails/saved"
    cd "$work/example-thumbnails/saved"
    run thumbnails 10 --name Stage --
    expect thumbnails '^127\.0\.0\.2:4811  "Stage"  state 3  Citp Simulator$'
    expect thumbnails '^127\.0\.0\.2:4811-[0-9]+\.jpg  [1-9][0-9]+$'
    for picture in *.jpg; do
        head -c 2 "$picture" | cmp - <(printf '\xff\xd8') || fail "$picture is no JPEG"
    done
}

test_every_signal()
{
    cat >"$work/patch.json" <<'JSON'
[{"id": 7, "universe": 1, "channel": 33, "channels": 20, "make": "Acme", "name": "Spot"}]
JSON
    # A folder of pictures, since a change in it is how libraryUpdated comes about.
    pictures=$work/example-pictures
    rm -rf "$pictures" && mkdir -p "$pictures/First"
    printf 'P6 1 1 255 abc' >"$pictures/First/one.ppm"
    (sleep 9; cp "$pictures/First/one.ppm" "$pictures/First/two.ppm") &
    run every_signal 25 --name Stage --media "$pictures" --effects 1 --generic 1 --layer-rate 2 --patch "$work/patch.json" \
        --die-after 18000 --
    for signal in 'serverUp: "Stage", Citp Simulator' 'libraryInfo: 1 libraries of type 1' 'mediaInfo: 1 media' \
        'effectInfo: [1-9]' 'genericInfo: [1-9]' 'libraryThumbnail: library 1,1,0,0: [0-9]+x[0-9]+ JPEG' \
        'elementThumbnail: .*: [0-9]+x[0-9]+ PNG' 'libraryUpdated: library 1,1,0,0 of type 1' 'layerStatus: layer' \
        'patchMessage: fixture 7, Acme Spot, universe 1, channel 33' serverDown; do
        expect every_signal "^127\.0\.0\.2:4811  $signal"
    done
    for request in PNam CInf SPtc GELI GELT GEIn GETh; do
        expect every_signal "  request $request passed down\$"
    done
    # Each signal of the header is shown, so that a new one is missed here.
    signals=$(sed -n '/^Q_SIGNALS:/,/^private/s/^    void \([a-z][A-Za-z]*\)(.*/\1/p' "$prefix/include/citp/citp_stack.h")
    [ "$(wc -w <<<"$signals")" -ge 11 ] || fail "the header's signals are not found"
    for signal in $signals; do
        expect every_signal "  $signal"
    done
}

test_own_system()
{
    run own_system 10 --name Stage -- DESK_SHOW_ADAPTER=lo DESK_TRACE=1
    expect own_system '^show adapter lo$'
    expect own_system '^up    127\.0\.0\.2:4811  Citp Simulator$'
    grep -qE '^desk-log [0-9]+ CITP\.Stack' "$work/example-own_system/output.errors" ||
        fail "the library does not log through the desk's logger"
    loaded=$(LD_TRACE_LOADED_OBJECTS=1 "$work/example-own_system/own_system" | grep citp-system)
    if [ "$(wc -l <<<"$loaded")" != 1 ] || [[ $loaded != *"$work/example-own_system/desk/"* ]]; then
        fail "the bundled system library is loaded: $loaded"
    fi
}

"test_$3"
