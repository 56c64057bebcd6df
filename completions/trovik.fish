# Completion of trovik for fish. What fits is asked of the program itself.

function __trovik_complete
    set -l words (commandline -opc)
    set -l current (commandline -ct | string collect)
    set -l plain (string unescape -- $current)
    test (count $plain) -eq 1; or set plain $current
    for line in (command $words[1] complete $words[2..] "$plain" 2>/dev/null)
        set -l parts (string split -m 1 \t -- $line)
        switch $parts[1]
            case :files
                set -l path (string sub -s (math (string length -- "$parts[2]") + 1) -- "$plain")
                for file in (__fish_complete_path "$path")
                    echo -- "$parts[2]$file"
                end
            case :folders
                set -l path (string sub -s (math (string length -- "$parts[2]") + 1) -- "$plain")
                for file in (__fish_complete_directories "$path" "")
                    echo -- "$parts[2]$file"
                end
            case '*'
                printf '%s\t%s\n' "$parts[1]" "$parts[2]"
        end
    end
end

complete -c trovik -f -a '(__trovik_complete)'
