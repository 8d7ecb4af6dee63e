# Completion of kvoctl and kvosim for fish. Installed under both names, of which it completes the one that it has.

function __kvo_complete
    set -l words (commandline -opc)
    set -l program (string replace -r '^~/' "$HOME/" -- $words[1])
    type -q -- $program; or return
    set -l begun (commandline -ct | string unescape)
    set -l answer ($program complete -- $words[2..] "$begun" 2>/dev/null)
    switch "$answer[1]"
        case files
            # Of "--option=VALUE" the value is what is completed, as fish does behind any command.
            set -l option (string match -r '^--[^=]*=' -- (commandline -ct))
            complete -C "'' "(string replace -r '^--[^=]*=' '' -- (commandline -ct)) | string replace -r '^' -- "$option"
        case directories
            __fish_complete_directories "$begun"
        case command
            # What stands behind "--" is completed as if it stood alone.
            set -l behind (math (contains -i -- -- $words) + 1)
            __fish_complete_subcommand --commandline $words[$behind..] (commandline -ct)
        case '*'
            printf '%s\n' $answer[2..]
    end
end

complete -c (status basename | string replace .fish '') -f -a '(__kvo_complete)'
