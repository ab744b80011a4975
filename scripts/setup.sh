#!/bin/bash
# Installs what building, testing and the demo need on Debian; installs
# nothing when everything is already there.
set -euo pipefail

packages=(
  cmake make g++                                  # the build
  libexpat1-dev                                   # XML property lists
  libgtest-dev libgmock-dev libbenchmark-dev      # tests and benchmarks
  clang libclang-rt-dev                           # libFuzzer targets
  python3                                         # the independent property-list implementation
  libplist-dev                                    # the codec benchmark's anchor (never linked into the tool)
  groff-base dpkg-dev file                        # checking the manual page; the Debian package
  zsh fish                                        # the shells whose completions the tests drive
  dbus-daemon                                     # a private system bus for the update announcement tests
  systemd                                         # systemd-journald and journalctl for the system-log tests
)

missing=()
for package in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed" || missing+=("$package")
done
if ((${#missing[@]} == 0)); then
  exit 0
fi
if [ "$(id -u)" -ne 0 ]; then
  echo "setup: missing packages: ${missing[*]} (run as root to install them)" >&2
  exit 1
fi
echo "setup: installing what building, testing and the demo need: ${missing[*]}"
# apt's own output only when it fails.
log=$(mktemp)
trap 'rm -f "$log"' EXIT
if ! { apt-get -qq update &&
       DEBIAN_FRONTEND=noninteractive apt-get -qq install -y --no-install-recommends "${missing[@]}"; } >"$log" 2>&1; then
  cat "$log" >&2
  echo "setup: installing ${missing[*]} failed (apt's output above)" >&2
  exit 1
fi
