# Completes the command lines of trendtool and trendcsv in fish. The names of devices, parameters
# and intervals come from the database that the command line names.

# Prints the value of the last of the options $argv before the cursor.
function __trendtool_value
    set -l words (commandline -opc)
    for i in (seq (count $words) -1 2)
        if contains -- $words[(math $i - 1)] $argv
            string replace -r '^~/' "$HOME/" -- $words[$i]
            return 0
        end
    end
    return 1
end

function __trendtool_list
    set -l db (__trendtool_value -x --database); or return
    trendtool list -x $db $argv 2>/dev/null
end

function __trendtool_params
    set -l device (__trendtool_value -d --device); or return
    __trendtool_list -d $device --names
end

function __trendtool_intervals
    set -l device (__trendtool_value -d --device); or return
    __trendtool_list -d $device --format csv | string replace -rf '^interval,(\d+),.*' '$1'
end

function __trendtool_subcommands
    trendtool --help 2>/dev/null | sed -n '/^Subcommands:/,$p' |
        string replace -rf '^  ([a-z]+) +(.*)' '$1\t$2'
end

function __trendtool_has_no_subcommand
    test (count (commandline -opc)) -eq 1
end

function __trendtool_help
    set -l words (commandline -opc)
    trendtool $words[2] --help 2>/dev/null
end

# The words that can follow the option before the cursor.
function __trendtool_words
    set -l words (commandline -opc)
    __trendtool_help | string replace -rf "^  $words[-1] WORD .*: " '' | string split ', '
end

function __trendtool_options
    __trendtool_help | string replace -rf '^  (?:-[a-z],)?(--[a-z-]+).*' '$1'
    __trendtool_help | string replace -rf '^  (-[a-z]),.*' '$1'
end

for command in trendtool trendcsv
    complete -c $command -f
    complete -c $command -s x -r -F -d 'The trend database'
    complete -c $command -s f -r -F -d 'The file to write'
    complete -c $command -s d -x -a '(__trendtool_list --names)' -d Device
    complete -c $command -s p -x -a '(__trendtool_params)' -d Parameter
    complete -c $command -s i -x -a '(__trendtool_intervals)' -d Interval
end
complete -c trendtool -l database -r -F
complete -c trendtool -l file -r -F
complete -c trendtool -l device -x -a '(__trendtool_list --names)'
complete -c trendtool -l parameter -x -a '(__trendtool_params)'
complete -c trendtool -l interval -x -a '(__trendtool_intervals)'
complete -c trendtool -l format -x -a '(__trendtool_words)'
complete -c trendtool -l layout -x -a '(__trendtool_words)'
complete -c trendtool -n __trendtool_has_no_subcommand -a '(__trendtool_subcommands)'
complete -c trendtool -n 'not __trendtool_has_no_subcommand' -F -a '(__trendtool_options)'
for option in s e m o c t w y sp sc sl
    complete -c trendcsv -o $option -x
end
for option in a r n nh u b pv J v
    complete -c trendcsv -o $option
end
