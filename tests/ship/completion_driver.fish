# Completes each command line read from standard input with the fish completion
# of qhvctl and prints what it offers at the line's end, on one line.
# Arguments: the completion file, the directory to complete file names in.
source $argv[1]; and cd $argv[2]; or exit 3
if test -z "$(complete --command qhvctl)"
    echo "$argv[1] completes nothing for qhvctl" >&2
    exit 4
end
while read -l line
    # Candidates without their descriptions.
    set -l offered (complete --do-complete "$line" | string replace -r '\t.*' '')
    printf '%s\n' "$offered"
end
