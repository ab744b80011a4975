#!/bin/bash
# Builds the tool and the development scheduler and takes the tool for a short
# tour against the scheduler, inside a sandbox (a private copy of the machine's
# mounts with a fresh /Library, /run and /home), so that nothing on this
# machine changes.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake -S . -B build/release -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build/release -j"$(nproc)" --target qhvctl qhv-sandbox qhv-dev-scheduler
echo "=== the tour: qhvctl against the development scheduler, in a sandbox"
build/release/qhv-sandbox bash scripts/tour.sh "$PWD/build/release"
