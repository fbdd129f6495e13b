# bash completion for planecheck
_planecheck() {
    local cur prev command
    cur=${COMP_WORDS[COMP_CWORD]}
    prev=${COMP_WORDS[COMP_CWORD-1]}
    command=${COMP_WORDS[1]}
    if [ "$COMP_CWORD" -eq 1 ]; then
        COMPREPLY=($(compgen -W "run check catalogue diff replay coverage report --help --version" -- "$cur"))
        return
    fi
    case $command in
    run)
        case $prev in
        --recorder|--junit|--events|--html|--coverage|--files-from) COMPREPLY=($(compgen -f -- "$cur")); return ;;
        --recorder-dir) COMPREPLY=($(compgen -d -- "$cur")); return ;;
        --shard) COMPREPLY=($(compgen -W "hash hash: position:" -- "$cur")); return ;;
        -j|--jobs|--shards|--threads|-k|--run-id|--timeout|--slow|--retries|--max-fail) return ;;
        esac
        if [[ $cur == -* ]]; then
            COMPREPLY=($(compgen -W "-v --verbose -q --quiet --strict --trace --recorder --recorder-dir -j --jobs --threads --junit --junit-steps --tap --tap-steps --events --html --coverage --files-from --run-id --shard --shards --list --json -k --lf --last-failed --cache-clear --allow-skipped --timeout --slow --retries --no-flaky --max-fail -x --help" -- "$cur"))
            return
        fi
        ;;
    check)
        if [ "$prev" = --events ]; then COMPREPLY=($(compgen -f -- "$cur")); return; fi
        if [[ $cur == -* ]]; then COMPREPLY=($(compgen -W "--events --help" -- "$cur")); return; fi
        ;;
    report)
        if [[ $cur == -* ]]; then COMPREPLY=($(compgen -W "--html --junit --coverage --help" -- "$cur")); return; fi
        COMPREPLY=($(compgen -f -- "$cur"))
        return
        ;;
    catalogue)
        if [ "$prev" = --describe ]; then
            COMPREPLY=($(compgen -W "$("${COMP_WORDS[0]}" catalogue --list 2>/dev/null)" -- "$cur"))
        else
            COMPREPLY=($(compgen -W "--list --stats --describe --schema --help" -- "$cur"))
        fi
        return
        ;;
    *) return ;;
    esac
    # scenario files: YAML or JSON, and directories to walk into
    COMPREPLY=($(compgen -f -X '!*.@(yaml|yml|json|jsonl)' -- "$cur") $(compgen -d -- "$cur"))
}
complete -o filenames -F _planecheck planecheck
