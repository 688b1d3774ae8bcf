# Completion of pimbsr for fish. The command itself knows the words; fish puts quotes around them.

function __pimbsr_complete
    set -l words (commandline -opc)
    set -l begun (commandline -ct | string replace -r '^"' '' | string replace -a '\\' '')
    $words[1] __complete $words[2..-1] "$begun" 2>/dev/null
end

complete -c pimbsr -f -n 'test (count (__pimbsr_complete)) -gt 0' -a '(__pimbsr_complete)'
