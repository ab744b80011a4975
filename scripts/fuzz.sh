#!/bin/bash
# Long fuzzing on demand: builds the libFuzzer targets with clang and runs each
# in turn for SECONDS (default 600) on all cores, through libFuzzer's fork mode,
# which keeps going after a finding. Each target starts from its seeds
# (fuzz/corpus/<name>) and a working corpus kept in the build tree, the one the
# short runs under ctest grow too; at the end the two are merged and minimised
# into the working corpus, so the sources never change. Prints one line per
# target and exits 1 when a target found a crash, a leak or a timeout, or
# failed; the reproducers and libFuzzer's own output stay in the build tree,
# their paths in what is printed.
#
#   scripts/fuzz.sh [SECONDS [TARGET...]]   (targets by name, e.g. xpc_frame; all by default)
#   QHV_FUZZ_BUILD_DIR   the build directory (default build/fuzz)
set -euo pipefail
cd "$(dirname "$0")/.."

usage() {
  echo "usage: scripts/fuzz.sh [SECONDS [TARGET...]]   (seconds per target, default 600; targets: $*)" >&2
  exit 2
}
available=()
for source in fuzz/*_fuzz.cc; do
  available+=("$(basename "$source" _fuzz.cc)")
done
seconds=${1:-600}
[[ $seconds =~ ^[1-9][0-9]*$ ]] || usage "${available[@]}"
shift $(($# > 0 ? 1 : 0))
targets=()
for name in "${@:-${available[@]}}"; do
  [[ " ${available[*]} " == *" $name "* ]] || usage "${available[@]}"
  targets+=("${name}_fuzz")
done
build=${QHV_FUZZ_BUILD_DIR:-build/fuzz}
jobs=$(nproc)

bash scripts/setup.sh
CC=clang CXX=clang++ cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQHV_FUZZ=ON -DQHV_TESTS=OFF >/dev/null
cmake --build "$build" -j"$jobs" --target "${targets[@]}"

out=$(cd "$build" && pwd)/fuzz
run=$(date -u +%Y%m%dT%H%M%SZ)
# The same limits as the short runs, and a hang is an input that takes 10 s.
limits=(-rss_limit_mb=2048 -max_len=65536 -timeout=10)
echo "fuzzing each target for ${seconds} s with ${jobs} processes; libFuzzer's output in ${out}/logs/${run}"
failed=0
for target in "${targets[@]}"; do
  name=${target%_fuzz}
  fuzzer=$out/$target
  seeds=$PWD/fuzz/corpus/$name
  corpus=$out/corpus-$name
  findings=$out/findings/$run/$name
  log=$out/logs/$run/$name.log
  mkdir -p "$corpus" "$findings" "$(dirname "$log")"

  status=0
  "$fuzzer" -fork="$jobs" -ignore_crashes=1 -max_total_time="$seconds" "${limits[@]}" \
    -artifact_prefix="$findings/" "$corpus" "$seeds" >"$log" 2>&1 || status=$?
  # Fork mode's progress lines open with the number of executions so far: "#1234: cov: ...".
  executions=$(grep -o '^#[0-9]*:' "$log" | tail -n 1 | tr -d '#:' || true)

  merged=$(mktemp -d "$out/merging-$name.XXXXXX")
  if "$fuzzer" -merge=1 "${limits[@]}" "$merged" "$corpus" "$seeds" >>"$log" 2>&1; then
    rm -rf "$corpus"
    mv "$merged" "$corpus"
  else
    rm -rf "$merged"
    echo "$name: merging the corpus failed (kept as it was); see $log"
    failed=1
  fi

  mapfile -t found < <(find "$findings" -type f \( -name 'crash-*' -o -name 'leak-*' -o -name 'timeout-*' -o -name 'oom-*' \) | sort)
  summary="$name: ${executions:-0} executions, $(find "$corpus" -type f | wc -l) inputs in the corpus"
  if ((${#found[@]} > 0)); then
    echo "$summary, ${#found[@]} findings (log: $log):"
    printf '  %s\n' "${found[@]}"
    failed=1
  elif ((status != 0)); then
    echo "$summary, no findings but libFuzzer exited with status $status; see $log"
    failed=1
  else
    echo "$summary, no findings"
    rmdir --ignore-fail-on-non-empty "$findings"
  fi
done
rmdir --ignore-fail-on-non-empty "$out/findings/$run" "$out/findings"
exit "$failed"
