#!/bin/bash
# Builds everything three ways and runs every test: the release build, the
# whole suite again under AddressSanitizer and UndefinedBehaviorSanitizer, and
# a short run of each libFuzzer target. End-to-end tests need root; elsewhere
# they are skipped with one line each.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
jobs=$(nproc)

cmake -S . -B build/release -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build build/release -j"$jobs"
ctest --test-dir build/release --output-on-failure -j"$jobs"

cmake -S . -B build/sanitize -DCMAKE_BUILD_TYPE=Debug -DQHV_SANITIZE=ON -DQHV_BENCH=OFF
cmake --build build/sanitize -j"$jobs"
ctest --test-dir build/sanitize --output-on-failure -j"$jobs"

CC=clang CXX=clang++ cmake -S . -B build/fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQHV_FUZZ=ON -DQHV_TESTS=OFF
cmake --build build/fuzz -j"$jobs"
ctest --test-dir build/fuzz --output-on-failure -j"$jobs"
