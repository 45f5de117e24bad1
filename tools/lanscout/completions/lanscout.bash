# bash completion for lanscout
_lanscout() {
    local cur prev columns="ip port hardware mac maker kind protocols name model page interface"
    COMPREPLY=()
    cur=${COMP_WORDS[COMP_CWORD]}
    prev=${COMP_WORDS[COMP_CWORD-1]}
    # bash breaks --option=value into three words.
    if [[ $cur == = ]]; then
        cur=
    elif [[ $prev == = ]]; then
        prev=${COMP_WORDS[COMP_CWORD-2]}
    fi
    case $prev in
        -i|--interface)
            COMPREPLY=($(compgen -W "$(command ls /sys/class/net 2>/dev/null)" -- "$cur"))
            return ;;
        -a|--address)
            COMPREPLY=($(compgen -W "$(ip -4 -o address show 2>/dev/null |
                awk '{ sub("/.*", "", $4); print $4 }')" -- "$cur"))
            return ;;
        -t|--timeout|--max-time)
            return ;;
        --only)
            COMPREPLY=($(compgen -W "onvif upnp" -- "$cur"))
            return ;;
        -s|--sort)
            COMPREPLY=($(compgen -W "$columns" -- "$cur"))
            return ;;
        --color)
            COMPREPLY=($(compgen -W "auto always never" -- "$cur"))
            return ;;
        --html|-c|--compare)
            compopt -o filenames 2>/dev/null
            COMPREPLY=($(compgen -f -- "$cur"))
            return ;;
    esac
    COMPREPLY=($(compgen -W "--help --version --interface --address --timeout --max-time --only
        --table --plain --json --jsonl --csv --html --sort --color --quiet --verbose --no-progress
        --watch --compare" -- "$cur"))
}
complete -F _lanscout lanscout
