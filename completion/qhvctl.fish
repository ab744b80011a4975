# Fish completion of qhvctl: command words, sub-commands and their values.
# Everything is completed from the word lists below; the tool itself is never
# run, so completing needs neither the scheduler service nor root.

function __qhvctl_complete
    set -l yes_no yes no
    set -l channels std beta test
    set -l features backups snapshots updates
    # The words before the one being completed, the program's name first.
    set -l line (commandline -opc)
    set -l command $line[2]
    set -l sub $line[3]

    if test (count $line) -eq 1
        # -d (the full usage) only means something as the sole argument.
        printf '%s\n' -d version status info settings enabled backups snapshots updates uninstall \
            log debug-logs dry-run enable disable set-settings set-interval set-when-inactive
    else if contains -- "$command" enable disable
        # Any number of features, each offered once.
        for feature in $features
            contains -- $feature $line[3..-1]; or echo $feature
        end
    else if test (count $line) -eq 2
        switch $command
            case status
                printf '%s\n' -x -j
            case settings
                printf '%s\n' -x -j import
            case enabled debug-logs dry-run
                printf '%s\n' $yes_no
            case backups
                printf '%s\n' enabled mode interval kickstart when-inactive
            case snapshots
                printf '%s\n' enabled
            case updates
                printf '%s\n' enabled mode feed check
            case log
                printf '%s\n' --last
            case set-settings
                # Settings files may have any name: every file and directory is offered.
                __fish_complete_path (commandline -ct)
        end
    else if test (count $line) -eq 3
        switch "$command $sub"
            case "settings import"
                __fish_complete_path (commandline -ct)
            case "backups enabled" "snapshots enabled" "updates enabled"
                printf '%s\n' $yes_no
            case "backups mode"
                printf '%s\n' WhenInactive Interval CalendarIntervals
            case "backups when-inactive"
                printf '%s\n' yes
            case "updates mode" "updates feed" "updates set-mode" "updates set-feed"
                printf '%s\n' $channels
            case "updates check"
                printf '%s\n' -i
        end
    end
end

# File names only where the function offers them.
complete --command qhvctl --no-files --arguments '(__qhvctl_complete)'
