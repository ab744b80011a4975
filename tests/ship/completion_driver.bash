# Completes each command line read from standard input with the bash completion
# of qhvctl and prints what it offers at the line's end, on one line.
# Arguments: the completion file, the directory to complete file names in.
source "$1" && cd "$2" || exit 3
registered=$(complete -p qhvctl) || exit 4
function=${registered#*-F }
function=${function%% *}
while IFS= read -r COMP_LINE; do
    read -ra COMP_WORDS <<<"$COMP_LINE"
    [[ $COMP_LINE == *" " ]] && COMP_WORDS+=("")
    COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
    COMP_POINT=${#COMP_LINE}
    COMPREPLY=()
    "$function" qhvctl "${COMP_WORDS[COMP_CWORD]}" "${COMP_WORDS[COMP_CWORD - 1]}"
    printf '%s\n' "${COMPREPLY[*]}"
done
