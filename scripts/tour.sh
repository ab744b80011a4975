#!/bin/bash
# The demo's tour, run inside the sandbox by demo.sh: the development scheduler
# serves, and the commands a user tries first run against it, as root and as an
# ordinary user, each shown with its output and exit status.
set -uo pipefail
bin="$1"
state=/run/qhv-demo-scheduler
user=4242

# In the sandbox's fresh /run: nothing of the tour stays on the machine.
output=$(mktemp -p /run)

# Runs the tool and shows its output as a terminal would: both streams in the
# order written (standard output line-buffered, as on a terminal), then the exit
# status on a line of its own, even after output that ends without a newline.
show() {
  stdbuf -oL "$@" >"$output" 2>&1
  local status=$?
  cat "$output"
  if [ -n "$(tail -c 1 "$output")" ]; then echo; fi
  echo "[exit status $status]"
  echo
}

run() {
  echo "# qhvctl $*"
  show "$bin/qhvctl" "$@"
}

run_as_user() {
  echo "\$ qhvctl $*"
  show setpriv --reuid="$user" --regid="$user" --clear-groups env HOME=/home/qhv-user "$bin/qhvctl" "$@"
}

scheduler() { "$bin/scheduler/qhv-dev-scheduler" "$1" --state "$state" >/dev/null; }

mkdir -p "$state"
scheduler start || exit 1

run version
run status
run_as_user status -j
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
echo "--- status exits 0 even when the scheduler is gone: only its output says so"
echo
echo "--- root's log file, /Library/Logs/Quillhaven/ctl.log:"
cat /Library/Logs/Quillhaven/ctl.log
