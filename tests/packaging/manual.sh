# Holds the installed man pages and the completion to the programs: each command has a page, each is completed, and so is
# each option. The guide is where the browser's help looks for it.
# SPDX-License-Identifier: Apache-2.0
# shellcheck source=common.sh
. "$(dirname "$0")/common.sh"

[ "$has_tools" = ON ] || { echo "The programs are left out of this build"; exit 77; }
PATH=$prefix/bin:$PATH
commands=$(citp-console --help | sed -n '/^Commands:/,/^$/s/^  \([a-z]*\) .*/\1/p')
[ "$(wc -w <<<"$commands")" -ge 7 ] || fail "citp-console --help lists only: $commands"

# options PROGRAM [COMMAND]
options() { "$@" --help | grep -oE '^ {1,2}--?[a-z][a-z-]*(, --?[a-z][a-z-]*)*' | grep -oE -- '--[a-z-]+' | sort -u; }

# What the browser's help shows, beside the program.
cmp "$source/docs/browser.md" "$(dirname "$(command -v citp-browser)")/../share/citp/guide/browser.md"
[ -e "$prefix/share/citp/guide/field-guide.md" ] || fail "the guide lacks its links' targets"

if [ -d "$prefix/share/man/man1" ]; then
    # shellcheck disable=SC2086 # the commands are words
    for page in citp-browser citp-mediaserver citp-console $(printf 'citp-console-%s ' $commands); do
        file=$prefix/share/man/man1/$page.1
        [ -e "$file" ] || fail "there is no page $page(1)"
        grep -q "^$page \\\\- ." "$file" || fail "$page(1) does not say what it is about"
        # shellcheck disable=SC2086 # a command is a word of its own
        for option in $(options ${page/console-/console }); do
            grep -q -- "${option//-/\\\\-}" "$file" || fail "$page(1) leaves out $option"
        done
    done
    echo "man pages:" "$prefix"/share/man/man1/*
else
    echo "help2man was not there when this was built: there are no man pages to look at"
fi

framework=/usr/share/bash-completion/bash_completion
[ -r "$framework" ] || { echo "bash-completion is not installed here: the completion is not tried"; exit 77; }
# shellcheck source=/dev/null
. "$framework"
# shellcheck source=../../tools/completion/citp-tools.bash
. "$prefix/share/bash-completion/completions/citp-console"
for program in citp-browser citp-mediaserver; do
    cmp "$prefix/share/bash-completion/completions/citp-console" "$prefix/share/bash-completion/completions/$program"
done

# expect WORD... -- COMPLETION...: the last word is completed to all these and no others.
expect()
{
    COMP_WORDS=()
    while [ "$1" != -- ]; do COMP_WORDS+=("$1"); shift; done
    shift
    COMP_CWORD=$((${#COMP_WORDS[@]} - 1)) COMP_LINE="${COMP_WORDS[*]}" COMPREPLY=()
    COMP_POINT=${#COMP_LINE}
    set +euo pipefail
    _citp_tools
    set -euo pipefail
    local found wanted
    found=$(printf '%s\n' "${COMPREPLY[@]}" | sort)
    wanted=$(printf '%s\n' "$@" | sort)
    [ "$found" = "$wanted" ] || fail "'${COMP_WORDS[*]}' is completed to '${found//$'\n'/ }' and not to '${wanted//$'\n'/ }'"
    echo "${COMP_WORDS[*]} -> ${found//$'\n'/ }"
}

# shellcheck disable=SC2046,SC2086 # all these are lists of words
{
    expect citp-console "" -- $commands
    expect citp-console --adapter lo "" -- $commands
    expect citp-console -i lo "" -- $commands
    expect citp-console --json "" -- $commands
    expect citp-console wat -- watch
    expect citp-browser - -- $(options citp-browser)
    expect citp-mediaserver - -- $(options citp-mediaserver)
    expect citp-mediaserver --msex 1. -- 1.0 1.1 1.2
    expect citp-mediaserver --fault sp -- split spoil
    expect citp-mediaserver --count "" --
    expect citp-console watch --seconds "" --
    expect citp-console thumbnails --format p -- png
    expect citp-console watch --group "" -- both new old
    expect citp-browser --group n -- new
    expect citp-mediaserver --group n -- new none
    expect citp-mediaserver --unknown e -- empty
    for command in $commands; do
        expect citp-console "$command" - -- $(options citp-console "$command")
    done
}

# Where a file is wanted, the folder's are offered, and not where none is.
rm -rf "$work/completion" && mkdir -p "$work/completion" && cd "$work/completion"
touch show.pcap
expect citp-console decode "" -- show.pcap
expect citp-console capture --write s -- show.pcap
expect citp-console capture -w "" -- show.pcap
expect citp-mediaserver --patch "" -- show.pcap
expect citp-mediaserver --replay "" -- show.pcap
expect citp-console watch "" --

# Servers are offered by their names, or by their keys where a name does not tell them apart. What listens never hangs the
# shell, and does not listen for each word again.
mkdir -p stub
cat >stub/citp-console <<STUB
#!/bin/sh
[ "\$1" = servers ] || exec '$prefix/bin/citp-console' "\$@"
echo "\$*" >>'$PWD/listened'
[ -e '$PWD/servers' ] || exec sleep 600
cat '$PWD/servers'
STUB
chmod +x stub/citp-console
PATH=$PWD/stub:$PATH
expect citp-console libraries "" --
cat >servers <<'SERVERS'
2.0.0.1:4811  "Stage 1"
2.0.0.2:4811  "Stage 2"
2.0.0.3:4811  "Twin"
2.0.0.4:4811  "Twin"
2.0.0.5:4811
2.0.0.6:4811  "x\u001b"
2.0.0.7:4811  "$(touch was-run)"
SERVERS
_citp_listen_again=0
: >listened
expect citp-console libraries "" -- 'Stage\ 1' 'Stage\ 2' 2.0.0.3:4811 2.0.0.4:4811 2.0.0.5:4811 2.0.0.6:4811 \
    '\$\(touch\ was-run\)'
# However long what follows takes.
_citp_listen_again=$((SECONDS + 3600))
expect citp-console libraries st -- 'Stage\ 1' 'Stage\ 2'
expect citp-console doctor 'Stage\ 2' -- 'Stage\ 2'
expect citp-console capture --server st -- 'Stage\ 1' 'Stage\ 2'
expect citp-console decode --server st --
expect citp-console thumbnails --to x "'Stage 1" -- 'Stage 1'
expect citp-console elements "Stage" "" --
[ "$(cat listened)" = "servers --timeout 1.2" ] || fail "it listened again: $(cat listened)"
expect citp-console layers -i lo Tw --
[ "$(tail -n 1 listened)" = "servers --timeout 1.2 --adapter lo" ] || fail "another adapter: $(cat listened)"
[ ! -e was-run ] || fail "a server's name was run"
