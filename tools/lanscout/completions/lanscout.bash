# bash completion for lanscout

# Offers those words that begin with the first argument. Not by compgen -W, which would expand what
# stands in them: the name of an interface may have any text.
_lanscout_offer() {
    local cur=$1 word
    shift
    for word in "$@"; do
        [[ $word != "$cur"* ]] || COMPREPLY+=("$(printf %q "$word")")
    done
}

_lanscout() {
    local cur prev names
    local columns="ip port hardware mac maker kind protocols name model page seenVia location serial
        firmware reach sharedAddress otherIps ipv6 uuid udn macMaker claimedMac profiles xaddrs
        deviceType firstSeen lastSeen site"
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
            mapfile -t names < <(command ls /sys/class/net 2>/dev/null)
            _lanscout_offer "$cur" "${names[@]}"
            return ;;
        -a|--address)
            mapfile -t names < <(ip -4 -o address show 2>/dev/null |
                awk '{ sub("/.*", "", $4); print $4 }')
            _lanscout_offer "$cur" "${names[@]}"
            return ;;
        -t|--timeout|--max-time|--to|--rate|--source-port|--at-once)
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
        --html|--file-sd|-c|--compare|--state|--config|--mqtt-cafile|--mqtt-cert|--mqtt-key|--mqtt-credentials)
            compopt -o filenames 2>/dev/null
            mapfile -t COMPREPLY < <(compgen -f -- "$cur")
            return ;;
    esac
    COMPREPLY=($(compgen -W "--help --version --interface --address --to --ipv4 --ipv6 --timeout
        --max-time --only --rate --source-port --at-once --table --plain --json --jsonl --csv --html --file-sd
        --sort --color --quiet --verbose --no-progress --watch --state --forget --compare
        --config --site --mqtt --homeassistant --sites --mqtt-cafile --mqtt-cert --mqtt-key
        --mqtt-credentials" -- "$cur"))
}
complete -F _lanscout lanscout
