# Completion of kvoctl and kvosim for fish. Installed under both names; each file completes the program of its name.

function __kvo_complete
    set -l words (commandline -opc)
    set -l program (string replace -r '^~/' "$HOME/" -- $words[1])
    type -q -- $program; or return
    set -l begun (commandline -ct | string unescape)
    set -l answer ($program complete -- $words[2..] "$begun" 2>/dev/null)
    switch "$answer[1]"
        case files
            # Complete only the value of "--option=VALUE", as fish does for any command.
            set -l option (string match -r '^--[^=]*=' -- (commandline -ct))
            complete -C "'' "(string replace -r '^--[^=]*=' '' -- (commandline -ct)) | string replace -r '^' -- "$option"
        case directories
            __fish_complete_directories "$begun"
        case command
            # Complete the words after "--" as a command line of their own.
            set -l after (math (contains -i -- -- $words) + 1)
            __fish_complete_subcommand --commandline $words[$after..] (commandline -ct)
        case '*'
            printf '%s\n' $answer[2..]
    end
end

complete -c (status basename | string replace .fish '') -f -a '(__kvo_complete)'
