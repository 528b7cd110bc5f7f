# Tries every command of the documents: those between fences, and those within the text.
#
# Between fences the two programs really run, in a network namespace where two media servers are up, "Stage 1" and
# "Stage 2"; each is ended after a few seconds as by Ctrl-C, and must then have the exit status 0. An output block behind
# a block of commands must be what they print: each of its lines, but for times, numbers with a unit, and lines of "...".
# Scripts are asked whether they know the words (--help behind them); presets, tests and components are looked up.
# A command that another test runs is listed in elsewhere.txt. Any other command is an error.
# SPDX-License-Identifier: Apache-2.0
# shellcheck source=common.sh
. "$(dirname "$0")/common.sh"

slice=10     # seconds until a program that runs until Ctrl-C is sent one
patience=600 # tenths of a second that the servers have to start
blocks=$work/commands/blocks
scratch=$work/commands/scratch

# Only the environment's own settings are taken away: with them the programs would print other things.
unset ARTNET_ADAPTER OS_LOG_MASKS

# --- One command ------------------------------------------------------------------------------------------------------

# lists KIND NAME: whether there is a preset NAME for cmake --list-presets=KIND.
lists()
{
    grep -q "\"$2\"" <<<"$(cd "$source" && "$cmake" --list-presets="$1")"
}

# after WORD TEXT: the word behind WORD in TEXT.
after()
{
    sed -nE "s/^(.*[ =])?$1[ =]([^ ]+).*/\2/p" <<<"$2"
}

check_cmake()
{
    local command=$1 word
    case $command in
        *--install*)
            word=$(after --component "$command")
            [ -z "$word" ] || grep -rqs "COMPONENT STREQUAL \"$word\"" "$build_tree"/cmake_install.cmake \
                "$build_tree"/*/cmake_install.cmake || { echo "there is no component $word"; return 1; } ;;
        *--build*)
            word=$(after --preset "$command")
            [ -z "$word" ] || lists build "$word" || { echo "there is no build preset $word"; return 1; }
            word=$(after --target "$command")
            [ -z "$word" ] || grep -qE "^$word:|[/ ]$word\b" <<<"$("$cmake" --build "$build_tree" --target help)" ||
                { echo "there is no target $word"; return 1; } ;;
        *)
            word=$(after --preset "$command")
            [ -z "$word" ] || lists configure "$word" || { echo "there is no preset $word"; return 1; } ;;
    esac
    while read -r word; do
        grep -qw "$word" "$source/CMakeLists.txt" || { echo "there is no setting $word"; return 1; }
    done < <(grep -oE -- '-D ?CITP_[A-Z_]+' <<<"$command" | sed 's/^-D *//')
}

check_ctest()
{
    local command=$1 word
    word=$(after --preset "$command")
    [ -z "$word" ] || lists test "$word" || { echo "there is no test preset $word"; return 1; }
    word=$(after -R "$command")
    if [ -n "$word" ] && [ "$word" != Pattern ]; then
        (cd "$build_tree" && ctest -N -R "$(tr -d "'\"" <<<"$word")") | grep -qE '^Total Tests: [1-9]' ||
            { echo "no test is called $word"; return 1; }
    fi
}

# check_script WORDS...: a script of the project, asked what it makes of the words.
check_script()
{
    local script=$source/$1
    shift
    [ -x "$script" ] || { echo "there is no such script"; return 1; }
    # Without it the script would do all its work here.
    grep -qE -- '--help|argparse' "$script" || { echo "the script knows no --help"; return 1; }
    (cd "$source" && timeout 20 "$script" "$@" --help) >"$scratch/help" 2>&1 </dev/null || { cat "$scratch/help"; return 1; }
}

# What a command is, without settings of the environment before it and what runs it.
bare()
{
    sed -E 's/^ +//; s/^([A-Z_]+=[^ ]* +)+//; s/^(sudo|tests\/in-namespace) +//' <<<"$1"
}

is_elsewhere()
{
    local pattern file
    while IFS=$'\t' read -r pattern file; do
        if [[ $pattern != \#* && -n $file ]] && grep -qE -- "$pattern" <<<"$1"; then
            [ -e "$source/$file" ] || { echo "$file is not there"; return 1; }
            return 0
        fi
    done <"$here/elsewhere.txt"
    return 1
}

# check COMMAND RUNS: one command of a document. RUNS: whether the programs really run.
check()
{
    local command=$1 runs=$2 part words status
    part=$(bare "$command")
    case $part in
        "build/release/"*) [ -e "$build_tree/$(cut -d' ' -f1 <<<"${part#build/release/}")" ]; return ;;
        citp-*)
            if [ -n "$runs" ]; then
                (cd "$scratch" && timeout 300 bash -c "$command") </dev/null
            else
                # The words only: the programs look for those they do not know before they help.
                (cd "$scratch" && bash -c "$(sed -E 's/ *[0-9]?>.*//' <<<"$part") --help") >"$scratch/help" 2>&1 </dev/null ||
                    { cat "$scratch/help"; return 1; }
            fi ;;
        scripts/* | .ci/*)
            status=0
            # shellcheck disable=SC2086
            eval "words=($part)"
            check_script "${words[@]}" || status=$?
            return $status ;;
        cmake\ *) check_cmake "$part" ;;
        ctest\ *) check_ctest "$part" ;;
        *)
            is_elsewhere "$command" && return
            echo "nothing is known of this command: see tests/docs/commands.sh and elsewhere.txt"
            return 1 ;;
    esac
}

# --- The blocks, inside the namespace ---------------------------------------------------------------------------------

# try_block BLOCK: runs its commands in order; their output, also of those that fail, in BLOCK.printed.
try_block()
{
    local block=$1 command part failed=0
    printf '' >"$block.printed"
    while read -r command; do
        # Commands joined by && are looked at one by one, unless the shell has to run them.
        while read -r part; do
            if ! check "$part" runs >"$block.one" 2>&1; then
                printf '%s: %s\n' "$(where "$block")" "$part"
                sed 's/^/    /' "$block.one"
                failed=1
            fi
            cat "$block.one" >>"$block.printed"
        done <<<"${command// && /$'\n'}"
    done < <(sed -e ':join; /\\$/ { N; s/\\\n *//; b join }' "$block" | sed -E 's/(^| +)#.*//; /^ *$/d')
    return $failed
}

# Times and numbers with a unit differ from run to run, and so does what stands between columns.
plain()
{
    sed -E 's/[0-9]{2}:[0-9]{2}:[0-9]{2}(\.[0-9]+)?/TIME/g; s/[0-9]{4}-[0-9]{2}-[0-9]{2}/DATE/g
        s/\b[0-9]+(\.[0-9]+)? ?(ms|s|min|B|bytes|KiB|MiB|MB|%)( |$|[),;:])/N \2\3/g
        s/\b[0-9]+(\.[0-9]+)? (a|per) second/N a second/g; s/ +/ /g; s/^ //; s/ $//'
}

# compare BLOCK OUTPUT: whether each line of the output block was printed.
compare()
{
    local block=$1 output=$2 line failed=0
    plain <"$block.printed" >"$block.plain"
    while read -r line; do
        if [ "$line" != ... ] && [ -n "$line" ] &&
            ! grep -qxF -- "$line" "$block.plain"; then
            printf '%s: its commands do not print: %s\n' "$(where "$output")" "$line"
            failed=1
        fi
    done < <(plain <"$output")
    [ $failed = 0 ] || { echo "  but:"; sed 's/^/    /' "$block.plain"; }
    return $failed
}

if [ "${2:-}" = --inside ]; then
    # On the host's own loopback the servers of other tests would be found too, or this network's.
    [ -z "${CITP_TEST_NO_NAMESPACE:-}" ] || { echo "This host forbids namespaces: the commands are not tried"; exit 77; }
    mkdir -p "$scratch/bin"
    for program in citp-browser citp-console citp-mediaserver; do
        # A walk ends by itself.
        cat >"$scratch/bin/$program" <<PROGRAM
#!/bin/sh
case " \$* " in *" --walk "*) exec '$prefix/bin/$program' "\$@" ;; esac
if '$prefix/bin/$program' "\$@" --help | tr -s '\n ' ' ' | grep -qE 'until Ctrl-C|on SIGINT'; then
    exec timeout -s INT --preserve-status $slice '$prefix/bin/$program' "\$@"
fi
exec '$prefix/bin/$program' "\$@"
PROGRAM
        chmod +x "$scratch/bin/$program"
    done
    "$prefix/bin/citp-mediaserver" --adapter lo --count 2 --name Stage --product 'Demo Media Server' \
        --product-version 2.5.1 --layer-rate 2 >"$scratch/servers" 2>&1 &
    servers=$!
    trap 'kill $servers' EXIT
    for ((i = 0; i < patience; i++)); do
        [ ! -s "$scratch/servers" ] || break
        sleep 0.1
    done
    PATH=$scratch/bin:$PATH
    running=() failed=0
    while read -r block; do
        try_block "$block" >"$block.verdict" 2>&1 &
        running+=("$!:$block")
    done < <(find "$blocks" -name '*.sh' | sort)
    for one in "${running[@]}"; do
        if ! wait "${one%%:*}"; then
            cat "${one#*:}.verdict"
            failed=1
        fi
    done
    while read -r output; do
        block=$(find "$(dirname "$output")" -name '*.sh' | sort | awk -v last="$output" '$0 < last' | tail -n 1)
        [ -n "$block" ] || { echo "$(where "$output"): no commands stand before it"; failed=1; continue; }
        compare "$block" "$output" || failed=1
    done < <(find "$blocks" -name '*.output' | sort)

    # Within the text: what begins as a command does and has no placeholder in it.
    spans=0
    while IFS=$'\t' read -r document line span; do
        spans=$((spans + 1))
        if ! check "$span" '' >"$scratch/span" 2>&1; then
            printf '%s:%s: %s\n' "$document" "$line" "$span"
            sed 's/^/    /' "$scratch/span"
            failed=1
        fi
    done <"$work/commands/spans"
    echo "${#running[@]} blocks of commands, $(find "$blocks" -name '*.output' | wc -l) of output, $spans commands in texts"
    exit $failed
fi

[ "$has_tools" = ON ] || { echo "This build has no programs to try"; exit 77; }
take_apart "$blocks"
rm -rf "$scratch"
mkdir -p "$scratch"
[ ! -d "$here/files" ] || cp "$here"/files/* "$scratch"
for document in $(documents); do
    awk -v OFS='\t' -v name="$document" '
        /^ *(```|~~~)/ { inside = !inside; next }
        inside { next }
        {
            count = split($0, pieces, "`")
            for (i = 2; i < count; i += 2)
                print name, FNR, pieces[i]
        }' "$source/$document"
done | grep -E $'\t((citp-(console|mediaserver)|ctest|cmake) |(scripts|\\.ci)/[a-z])' |
    grep -vE $'\t''.*[ =]([A-Z]{1,}|NAME=MASK|[A-Z]+,\.\.\.)( |$)|\.\.\.' | sort -u -t $'\t' -k 3 >"$work/commands/spans" || true
exec "$source/tests/in-namespace" bash "$0" "$1" --inside
