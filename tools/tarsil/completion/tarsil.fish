# Completion of `tarsil` for fish. Everything that it offers is asked of the program; without an offer fish completes
# files.

function __tarsil_offers
    set -l words (commandline -opc) (commandline -ct)
    $words[1] complete $words[2..-1] 2>/dev/null
end

complete -c tarsil -a '(__tarsil_offers)'
