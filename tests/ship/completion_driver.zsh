# Completes each command line read from standard input with the zsh completion
# of qhvctl and prints what it offers at the line's end, on one line.
# Arguments: the completion file, the directory to complete file names in.
#
# Completion runs only in the line editor, so an interactive zsh on a pseudo
# terminal sources this file again: there compinit finds the function under its
# installed name, and a widget run at the first prompt completes every line,
# recording what each call of compadd would add.

if [[ -o interactive ]]; then
    completing_dir=$1
    exec 2>>$completing_dir/errors
    fpath=($completing_dir $fpath)
    autoload -Uz compinit && compinit -u -D
    typeset -ga offered
    compadd() {
        # Calls that only fill an array (-O, -A, -D) add nothing themselves.
        if (( ! ${argv[(I)-[OAD]]} )); then
            local -a adding
            builtin compadd -O adding "$@"
            offered+=($adding)
        fi
        builtin compadd "$@"
    }
    # Matches are recorded, not inserted or listed: the line stays as typed.
    offer() { _main_complete; compstate[insert]=''; compstate[list]='' }
    zle -C offer complete-word offer
    offer-every-line() {
        {
            [[ $_comps[qhvctl] == _qhvctl ]] || print -u2 "_qhvctl has no #compdef line for qhvctl"
            local line
            for line in "${(@f)$(<$completing_dir/lines)}"; do
                offered=()
                BUFFER=$line CURSOR=$#line
                zle offer
                print -r -- "$offered" >> $completing_dir/offered
            done
        } always {
            BUFFER=exit
            zle accept-line
        }
    }
    zle -N zle-line-init offer-every-line
    return
fi

zmodload zsh/zpty && completing_dir=$(mktemp -d) || exit 3
cp $1 $completing_dir/_qhvctl && cat > $completing_dir/lines && cd $2 && zpty completing zsh -f -i
started=$?
trap 'rm -rf $completing_dir' EXIT  # only now: the child that zpty forks would run it too
(( started == 0 )) || exit 3
zpty -w completing "source ${(q)0:A} ${(q)completing_dir} || exit"
zpty -r completing > /dev/null  # until the shell exits
[[ -e $completing_dir/errors ]] && cat $completing_dir/errors >&2
cat $completing_dir/offered
