# Completion of citp-browser, citp-console and citp-mediaserver in bash. What there is to complete, the programs' own --help says.
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

# Prints the lines that the help text on standard input begins an option with: the names, and what stands for its value.
_citp_options()
{
    grep -oE '^ {1,2}--?[a-z][a-z-]*(, --?[a-z][a-z-]*)*( <|)'
}

# Prints the long name of the option $1, if it is one and takes a value, by the help text on standard input.
_citp_with_value()
{
    [[ $1 == -* ]] && _citp_options | grep -E -- "[ ]$1(,.*)? <\$" | grep -oE -- '--[a-z-]+' | head -n 1
}

_citp_tools()
{
    local cur prev words cword
    _init_completion || return
    local program=${words[0]} command='' option i help

    help=$("$program" --help 2>/dev/null)
    if [[ ${program##*/} == citp-console ]]; then
        for ((i = 1; i < cword; ++i)); do
            if [[ ${words[i]} != -* && -z $(_citp_with_value "${words[i - 1]}" <<<"$help") ]]; then
                command=${words[i]}
                # Without the words behind the command, which it might refuse.
                help=$("$program" "$command" --help 2>/dev/null)
                break
            fi
        done
    fi

    option=$(_citp_with_value "$prev" <<<"$help")
    case ${option#--} in
        '') ;;
        adapter) _available_interfaces -a; return ;;
        to | media) _filedir -d; return ;;
        patch | output | write) _filedir; return ;;
        format) COMPREPLY=($(compgen -W 'jpeg png rgb8' -- "$cur")); return ;;
        msex) COMPREPLY=($(compgen -W '1.0 1.1 1.2' -- "$cur")); return ;;
        fault) COMPREPLY=($(compgen -W "$(_citp_choices fault <<<"$help")" -- "$cur")); return ;;
        *) return ;; # a value that nobody can guess
    esac
    if [[ $cur == -* ]]; then
        COMPREPLY=($(compgen -W "$(_citp_options <<<"$help" | grep -oE -- '--[a-z-]+')" -- "$cur"))
    elif [[ ${program##*/} == citp-console && -z $command ]]; then
        COMPREPLY=($(compgen -W "$(sed -n '/^Commands:/,/^$/s/^  \([a-z]\+\) .*/\1/p' <<<"$help")" -- "$cur"))
    elif grep -qE '^Usage:.* \[?FILE' <<<"$help"; then
        _filedir
    fi
} &&
    complete -F _citp_tools citp-browser citp-console citp-mediaserver
