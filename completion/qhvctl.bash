# Bash completion of qhvctl: command words, sub-commands and their values.
# Everything is completed from the word lists below; the tool itself is never
# run, so completing needs neither the scheduler service nor root.

_qhvctl() {
    local cur=${COMP_WORDS[COMP_CWORD]}
    local command=${COMP_WORDS[1]}
    local sub=${COMP_WORDS[2]}
    local yes_no="yes no"
    local channels="std beta test"
    local features="backups snapshots updates"
    local words=""
    COMPREPLY=()

    if ((COMP_CWORD == 1)); then
        # -d (the full usage) only means something as the sole argument.
        words="-d version status info settings enabled backups snapshots updates uninstall
               log debug-logs dry-run enable disable set-settings set-interval set-when-inactive"
    elif [[ $command == enable || $command == disable ]]; then
        # Any number of features, each offered once.
        local given
        for given in "${COMP_WORDS[@]:2:COMP_CWORD-2}"; do
            features=" $features "
            features=${features/" $given "/ }
        done
        words=$features
    elif ((COMP_CWORD == 2)); then
        case $command in
            status) words="-x -j" ;;
            settings) words="-x -j import" ;;
            enabled | debug-logs | dry-run) words=$yes_no ;;
            backups) words="enabled mode interval kickstart when-inactive" ;;
            snapshots) words="enabled" ;;
            updates) words="enabled mode feed check" ;;
            log) words="--last" ;;
            set-settings) _qhvctl_files "$cur"; return ;;
        esac
    elif ((COMP_CWORD == 3)); then
        case "$command $sub" in
            "settings import") _qhvctl_files "$cur"; return ;;
            "backups enabled" | "snapshots enabled" | "updates enabled") words=$yes_no ;;
            "backups mode") words="WhenInactive Interval CalendarIntervals" ;;
            "backups when-inactive") words="yes" ;;
            "updates mode" | "updates feed" | "updates set-mode" | "updates set-feed") words=$channels ;;
            "updates check") words="-i" ;;
        esac
    fi
    [[ -n $words ]] && mapfile -t COMPREPLY < <(compgen -W "$words" -- "$cur")
    return 0
}

# Settings files may have any name: every file and directory is offered.
_qhvctl_files() {
    # Outside a completion (a script calling the function) compopt has nothing to set.
    compopt -o filenames 2>/dev/null
    mapfile -t COMPREPLY < <(compgen -f -- "$1")
}

complete -F _qhvctl qhvctl
