# Bash completion for citp-browser, citp-console and citp-mediaserver. The words are read from the programs' --help
# texts, and the servers are those that announce themselves.
# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash disable=SC2207 # COMPREPLY is a list of words

# Prints the values of the option --$1 that the help text on standard input lists.
_citp_choices()
{
    local option=$1
    awk -v option="--$option" '
        /^  ?-/ { inside = 0; for (i = 1; i <= 2; ++i) { name = $i; sub(/,$/, "", name); if (name == option) inside = 1 } }
        inside { text = text " " $0 }
        END { print text }' | grep -oE '[.;] +[a-z-]+:' | tr -d '.;: '
}

# Prints the values of the option --$1 that the help text on standard input names as its value, "<old|new>".
_citp_values()
{
    grep -oE -- "--$1 <[a-z|]+>" | head -n 1 | tr '<|>' '\n' | tail -n +2
}

# Prints the names of each option in the help text on standard input, followed by "<" if the option takes a value.
_citp_options()
{
    grep -oE '^ {1,2}--?[a-z][a-z-]*(, --?[a-z][a-z-]*)*( <|)'
}

# Prints the long name of $1 if the help text on standard input lists it as an option with a value.
_citp_with_value()
{
    [[ $1 == -* ]] && _citp_options | grep -E -- "[ ]$1(,.*)? <\$" | grep -oE -- '--[a-z-]+' | head -n 1
}

# Completes $cur to the servers that are heard within little more than a second, in which each announces itself: to
# their names, or to the keys of those whose names do not tell them apart. The answer is kept for half a minute, so that
# the next words need no listening. $1: the program; further ones: its options.
_citp_servers()
{
    local key name typed names repeated
    if [[ ${_citp_listened_as-} != "$*" ]] || ((SECONDS >= ${_citp_listen_again:-0})); then
        # timeout, because whatever happens, the shell must not hang.
        _citp_heard=$(timeout 3 "$1" servers --timeout 1.2 "${@:2}" 2>/dev/null </dev/null)
        _citp_listened_as=$*
        _citp_listen_again=$((SECONDS + (${#_citp_heard} > 0 ? 30 : 3)))
    fi
    typed=${cur#[\"\']}
    typed=${typed//\\/}
    names=$(sed -E 's/^[^ ]+ *//' <<<"$_citp_heard" | sort)
    repeated=$(uniq -d <<<"$names")
    while read -r key name; do
        [[ -n $key ]] || continue
        name=${name#\"} name=${name%\"}
        # An escaped name is not the name.
        if [[ -z $name || $name == *\\u* || ($cur == [0-9]* && $key == "$cur"*) ]] ||
            grep -qxF -- "\"$name\"" <<<"$repeated"; then
            name=$key
        fi
        [[ ${name,,} == "${typed,,}"* ]] || continue
        if [[ $cur == [\"\']* || $name == "$key" ]]; then
            COMPREPLY+=("$name")
        else
            COMPREPLY+=("$(printf %q "$name")")
        fi
    done <<<"$_citp_heard"
    __ltrim_colon_completions "$cur"
}

_citp_tools()
{
    local cur prev words cword
    _init_completion -n : || return
    local program=${words[0]} command='' option i help wanted=0 adapter=()

    help=$("$program" --help 2>/dev/null)
    if [[ ${program##*/} == citp-console ]]; then
        for ((i = 1; i < cword; ++i)); do
            if [[ ${words[i]} != -* && -z $(_citp_with_value "${words[i - 1]}" <<<"$help") ]]; then
                command=${words[i]}
                # Without the arguments after the command, which may still be incomplete.
                help=$("$program" "$command" --help 2>/dev/null)
                break
            fi
        done
        for ((i += 1; i < cword; ++i)); do
            [[ ${words[i]} == -* || -n $(_citp_with_value "${words[i - 1]}" <<<"$help") ]] || wanted=$((wanted + 1))
        done
        for ((i = 1; i + 1 < cword; ++i)); do
            [[ ${words[i]} != --adapter && ${words[i]} != -i ]] || adapter=(--adapter "${words[i + 1]}")
        done
    fi

    option=$(_citp_with_value "$prev" <<<"$help")
    case ${option#--} in
        '') ;;
        adapter) _available_interfaces -a; return ;;
        html)
            if [[ $command == test ]]; then _filedir; else _filedir -d; fi
            return ;;
        to | media) _filedir -d; return ;;
        compare | json | patch | output | replay | write) _filedir; return ;;
        only | skip)
            COMPREPLY=($(compgen -W "$("$program" test --list 2>/dev/null | sed -n 's/^[0-9]*  \([a-z]*\):.*/\1/p' |
                sort -u)" -- "$cur"))
            return ;;
        format) COMPREPLY=($(compgen -W 'jpeg png rgb8' -- "$cur")); return ;;
        msex) COMPREPLY=($(compgen -W '1.0 1.1 1.2' -- "$cur")); return ;;
        group | unknown)
            COMPREPLY=($(compgen -W "$(_citp_values "${option#--}" <<<"$help")" -- "$cur"))
            return
            ;;
        server)
            # That of a file cannot be listened to.
            case $command in
                capture) _citp_servers "$program" "${adapter[@]}" ;;
            esac
            return
            ;;
        fault) COMPREPLY=($(compgen -W "$(_citp_choices fault <<<"$help")" -- "$cur")); return ;;
        *) return ;; # a value without completion
    esac
    if [[ $cur == -* ]]; then
        COMPREPLY=($(compgen -W "$(_citp_options <<<"$help" | grep -oE -- '--[a-z-]+')" -- "$cur"))
    elif [[ ${program##*/} == citp-console && -z $command ]]; then
        COMPREPLY=($(compgen -W "$(sed -n '/^Commands:/,/^$/s/^  \([a-z]\+\) .*/\1/p' <<<"$help")" -- "$cur"))
    elif grep -qE '^Usage:.* \[?FILE' <<<"$help"; then
        _filedir
    elif [[ -n $command && $wanted == 0 ]] && grep -qE "^Usage:.* $command \[?SERVER" <<<"$help"; then
        _citp_servers "$program" "${adapter[@]}"
    fi
} &&
    complete -F _citp_tools citp-browser citp-console citp-mediaserver
