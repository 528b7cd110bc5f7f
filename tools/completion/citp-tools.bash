# Completion of citp-console and citp-mediaserver in bash. What there is to complete, the programs' own --help says.
# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash disable=SC2207 # COMPREPLY is a list of words

# Prints the values that the help text on standard input names for an option, each a word.
_citp_choices()
{
    local option=$1
    awk -v option="--$option" '
        /^  ?-/ { inside = 0; for (i = 1; i <= 2; ++i) { name = $i; sub(/,$/, "", name); if (name == option) inside = 1 } }
        inside { text = text " " $0 }
        END { print text }' | grep -oE '[.;] +[a-z-]+:' | tr -d '.;: '
}

_citp_tools()
{
    local cur prev words cword
    _init_completion || return
    local program=${words[0]} command='' option=${prev#--} i help

    if [[ ${program##*/} == citp-console ]]; then
        for ((i = 1; i < cword; ++i)); do
            if [[ ${words[i]} != -* && ${words[i - 1]} != --!(help|json|version|quiet|summary) ]]; then
                command=${words[i]}
                break
            fi
        done
    fi
    # Without the words behind the command, which it might refuse.
    # shellcheck disable=SC2086 # no command is no word
    help=$("$program" $command --help 2>/dev/null)

    if [[ $prev == --* ]]; then
        case $option in
            adapter) _available_interfaces -a; return ;;
            to | media) _filedir -d; return ;;
            patch | output) _filedir; return ;;
            format) COMPREPLY=($(compgen -W 'jpeg png rgb8' -- "$cur")); return ;;
            msex) COMPREPLY=($(compgen -W '1.0 1.1 1.2' -- "$cur")); return ;;
            fault) COMPREPLY=($(compgen -W "$(_citp_choices fault <<<"$help")" -- "$cur")); return ;;
        esac
        # Any other option that takes a value takes one that nobody can guess.
        ! grep -qE -- "^ {1,2}(-[a-z], )?--$option <" <<<"$help" || return
    fi
    if [[ $cur == -* ]]; then
        COMPREPLY=($(compgen -W "$(grep -oE -- '^ {1,2}(-[a-z], )?--[a-z-]+' <<<"$help" | grep -oE -- '--[a-z-]+')" -- "$cur"))
    elif [[ ${program##*/} == citp-console && -z $command ]]; then
        COMPREPLY=($(compgen -W "$(sed -n '/^Commands:/,/^$/s/^  \([a-z]\+\) .*/\1/p' <<<"$help")" -- "$cur"))
    elif grep -qE '^Usage:.* \[?FILE' <<<"$help"; then
        _filedir
    fi
} &&
    complete -F _citp_tools citp-console citp-mediaserver
