# Completion of kvoctl and kvosim for bash, without dependencies. Installed under both names.

# Splits the text before the cursor into _kvo_words, removes quotes and expands nothing. _kvo_quote is the quote that is still
# open.
_kvo_split() {
    local line=${COMP_LINE:0:COMP_POINT} character word='' begun='' index
    _kvo_words=()
    _kvo_quote=''
    for ((index = 0; index < ${#line}; ++index)); do
        character=${line:index:1}
        if [[ $character == '\' && $_kvo_quote != "'" ]]; then
            ((++index))
            word+=${line:index:1} begun=1
        elif [[ -n $_kvo_quote ]]; then
            if [[ $character == "$_kvo_quote" ]]; then _kvo_quote=''; else word+=$character; fi
        elif [[ $character == [\"\'] ]]; then
            _kvo_quote=$character begun=1
        elif [[ $character == [[:space:]] ]]; then
            [[ -z $begun ]] || _kvo_words+=("$word")
            word='' begun=''
        else
            word+=$character begun=1
        fi
    done
    _kvo_words+=("$word")
}

# Adds a replacement for the unfinished word. Bash replaces only the part after the last word-breaking character.
_kvo_reply() { # CANDIDATE
    local kept=$1 before=${_kvo_words[-1]} breaks=${COMP_WORDBREAKS//[^=:]/}
    if [[ -z $_kvo_quote && -n $breaks ]]; then
        before=${before%"${before##*[$breaks]}"}
        kept=${kept#"$before"}
        [[ -z $kept ]] || printf -v kept %q "$kept"
    elif [[ -z $_kvo_quote ]]; then
        printf -v kept %q "$kept"
    elif [[ $_kvo_quote == '"' ]]; then
        kept=${kept//'\'/'\\'} kept=${kept//'"'/'\"'} kept=${kept//'$'/'\$'} kept=${kept//'`'/'\`'}
    fi
    COMPREPLY+=("$kept")
}

# Completes the words after "--" as a command line of their own.
_kvo_other_command() {
    local index
    for ((index = 1; index < COMP_CWORD; ++index)); do
        [[ ${COMP_WORDS[index]} == -- ]] && break
    done
    if declare -F _command_offset >/dev/null; then
        _command_offset $((index + 1))
    elif ((COMP_CWORD == index + 1)); then
        mapfile -t COMPREPLY < <(compgen -c -- "${COMP_WORDS[COMP_CWORD]}")
    else
        compopt -o default
    fi
}

_kvo_complete() {
    local _kvo_words _kvo_quote kind candidates candidate
    COMPREPLY=()
    # The file of a redirection, not an argument.
    if [[ ${COMP_WORDS[COMP_CWORD - 1]} == *[\<\>] ]]; then
        compopt -o default
        return
    fi
    _kvo_split
    {
        read -r kind
        mapfile -t candidates
    } < <("${1/#~\//$HOME/}" complete -- "${_kvo_words[@]:1}" 2>/dev/null)
    case $kind in
    files) compopt -o default ;;
    directories) compopt -o dirnames ;;
    command) _kvo_other_command ;;
    esac
    for candidate in "${candidates[@]}"; do
        _kvo_reply "${candidate%%$'\t'*}"
    done
    [[ ${#COMPREPLY[@]} != 1 || ${COMPREPLY[0]} != *= ]] || compopt -o nospace
}

complete -F _kvo_complete kvoctl kvosim
