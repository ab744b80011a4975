#!/bin/bash
# The demo's tour, run inside the sandbox by demo.sh: a few commands as root
# and as an ordinary user, each shown with its output and exit status.
set -uo pipefail
bin="$1"
user=4242

run() {
  echo "\$ qhvctl $*"
  "$bin/qhvctl" "$@"
  echo "[exit status $?]"
  echo
}

run_as_user() {
  echo "\$ qhvctl $*    (as an ordinary user)"
  setpriv --reuid="$user" --regid="$user" --clear-groups env HOME=/home/qhv-user "$bin/qhvctl" "$@"
  echo "[exit status $?]"
  echo
}

run version
run
run -d
run_as_user _update
run_as_user version
echo "--- log files written by these runs:"
find /Library/Logs /home/qhv-user/Library/Logs -type f -printf '%p (%s bytes, owner %u)\n'
