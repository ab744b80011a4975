#compdef qhvctl
# Zsh completion of qhvctl: command words, sub-commands and their values.
# Everything is completed from the word lists below; the tool itself is never
# run, so completing needs neither the scheduler service nor root.

local command=$words[2] sub=$words[3]
local -a yes_no=(yes no) channels=(std beta test) features=(backups snapshots updates) candidates

if (( CURRENT == 2 )); then
    # -d (the full usage) only means something as the sole argument.
    candidates=(-d version status info settings enabled backups snapshots updates uninstall
                log debug-logs dry-run enable disable set-settings set-interval set-when-inactive)
elif [[ $command == (enable|disable) ]]; then
    # Any number of features, each offered once.
    local -a given=($words[3,CURRENT-1])
    candidates=(${features:|given})
elif (( CURRENT == 3 )); then
    case $command in
        status) candidates=(-x -j) ;;
        settings) candidates=(-x -j import) ;;
        enabled | debug-logs | dry-run) candidates=($yes_no) ;;
        backups) candidates=(enabled mode interval kickstart when-inactive) ;;
        snapshots) candidates=(enabled) ;;
        updates) candidates=(enabled mode feed check) ;;
        log) candidates=(--last) ;;
        # Settings files may have any name: every file and directory is offered.
        set-settings) _files; return ;;
    esac
elif (( CURRENT == 4 )); then
    case "$command $sub" in
        "settings import") _files; return ;;
        "backups enabled" | "snapshots enabled" | "updates enabled") candidates=($yes_no) ;;
        "backups mode") candidates=(WhenInactive Interval CalendarIntervals) ;;
        "backups when-inactive") candidates=(yes) ;;
        "updates mode" | "updates feed" | "updates set-mode" | "updates set-feed") candidates=($channels) ;;
        "updates check") candidates=(-i) ;;
    esac
fi
compadd -a candidates
