#!/bin/bash
# Builds everything two ways and runs every test in each, with warnings as errors:
#   release                 GCC, the build that ships, with the benchmarks;
#   sanitizers and fuzzing  clang, the suite under AddressSanitizer and
#                           UndefinedBehaviorSanitizer, and a short run of each libFuzzer target.
# End-to-end tests need root; elsewhere they are skipped with one line each.
# QHV_BUILD_ROOT (default: build) is where the build trees go.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
root=${QHV_BUILD_ROOT:-build}
jobs=$(nproc)

for compiler in gcc g++ clang clang++; do
  if ! command -v "$compiler" >/dev/null; then
    echo "test: $compiler not found; scripts/setup.sh installs it (as root)" >&2
    exit 1
  fi
done

minutes() { printf '%dm%02ds' $(($1 / 60)) $(($1 % 60)); }

summary=""
# stage NAME BUILD-DIRECTORY C-COMPILER C++-COMPILER CMAKE-ARGUMENTS...: configures,
# builds and tests one build tree (the compilers count only for a new tree).
stage() {
  local name=$1 build=$2 cc=$3 cxx=$4
  shift 4
  local started=$SECONDS
  echo "=== $name: building and testing in $build"
  if ! { CC=$cc CXX=$cxx cmake -S . -B "$build" --log-level=WARNING -DQHV_WERROR=ON "$@" &&
         cmake --build "$build" -j"$jobs" &&
         ctest --test-dir "$build" --output-on-failure -j"$jobs"; }; then
    echo "=== $name: FAILED after $(minutes $((SECONDS - started)))" >&2
    exit 1
  fi
  echo "=== $name: passed in $(minutes $((SECONDS - started)))"
  summary+="${summary:+, }$name $(minutes $((SECONDS - started)))"
}

stage release "$root/release" gcc g++ -DCMAKE_BUILD_TYPE=RelWithDebInfo
stage "sanitizers and fuzzing" "$root/fuzz" clang clang++ -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQHV_FUZZ=ON -DQHV_TESTS=ON
echo "=== all passed in $(minutes "$SECONDS") ($summary)"
