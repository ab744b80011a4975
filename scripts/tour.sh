#!/bin/bash
# The demo's tour, run inside the sandbox by demo.sh: the development scheduler
# serves, and the commands a user tries first run against it, as root and as an
# ordinary user, each shown with its output and exit status.
set -uo pipefail
bin="$1"
state=/run/qhv-demo-scheduler
user=4242

run() {
  echo "# qhvctl $*"
  "$bin/qhvctl" "$@"
  echo "[exit status $?]"
  echo
}

run_as_user() {
  echo "\$ qhvctl $*"
  setpriv --reuid="$user" --regid="$user" --clear-groups env HOME=/home/qhv-user "$bin/qhvctl" "$@"
  echo "[exit status $?]"
  echo
}

scheduler() { "$bin/scheduler/qhv-dev-scheduler" "$1" --state "$state" >/dev/null; }

mkdir -p "$state"
scheduler start || exit 1

run version
run status
run_as_user status -j
echo
run info
run settings
run_as_user enabled
run backups interval
run backups interval 2h
run backups interval
run_as_user backups enabled no
run_as_user backups kickstart
run_as_user backups kickstart
run backups mode Hourly
run updates check
echo "--- the scheduler stops"
scheduler stop
run status
echo "--- root's log file, /Library/Logs/Quillhaven/ctl.log:"
cat /Library/Logs/Quillhaven/ctl.log
