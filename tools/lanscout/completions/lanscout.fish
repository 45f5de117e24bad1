# fish completion for lanscout
function __lanscout_addresses
    ip -4 -o address show 2>/dev/null | string replace -rf '^\d+: (\S+) +inet ([\d.]+)/.*' '$2\t$1'
end

complete -c lanscout -f
complete -c lanscout -s h -l help -d 'Say how it is used'
complete -c lanscout -s V -l version -d 'Say which version it is'
complete -c lanscout -s i -l interface -x -a '(command ls /sys/class/net)' -d 'Search this interface'
complete -c lanscout -s a -l address -x -a '(__lanscout_addresses)' -d 'Search from this address'
complete -c lanscout -s t -l timeout -x -d 'Seconds to search'
complete -c lanscout -l max-time -x -d 'End a search that still runs after this time'
complete -c lanscout -l only -x -a 'onvif upnp' -d 'Search one way only'
complete -c lanscout -l table -d 'A table'
complete -c lanscout -l plain -d 'A line a device, fields between tabs'
complete -c lanscout -l json -d 'One JSON document at the end'
complete -c lanscout -l jsonl -d 'A JSON text a line, each at once'
complete -c lanscout -l csv -d 'Comma-separated values at the end'
complete -c lanscout -l html -r -F -d 'Also write a page of the result'
complete -c lanscout -s s -l sort -x -d 'Order by this column' \
    -a 'ip port hardware mac maker kind protocols name model page interface'
complete -c lanscout -l color -x -a 'auto always never' -d 'Colours in the table'
complete -c lanscout -s q -l quiet -d 'Nothing but the result and errors'
complete -c lanscout -s v -l verbose -d 'The log lines too'
complete -c lanscout -l no-progress -d 'No progress bar'
complete -c lanscout -s w -l watch -d 'Search again and again'
complete -c lanscout -s c -l compare -r -F -d 'Compare with an earlier result'
