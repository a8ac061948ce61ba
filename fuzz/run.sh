#!/usr/bin/env bash
# Builds the fuzz targets with clang and libFuzzer in build-fuzz, runs each for FUZZ_SECONDS
# (default 60), and prints a table: target, executions, coverage, findings. Each run grows a
# working corpus in the build directory from the seeds in fuzz/corpus/<target>; crash, leak,
# timeout and out-of-memory inputs are copied to fuzz/regressions/<target>/. Exits 1 when any
# target has a finding.
#
#   FUZZ_SECONDS=N   time per target
#   FUZZ_TARGETS="a b"  run only these targets
#   FUZZ_BUILD=dir   build directory (default build-fuzz)
#   JOBS=N           parallel compile jobs
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=${FUZZ_SECONDS:-60}
build=${FUZZ_BUILD:-build-fuzz}
targets=${FUZZ_TARGETS:-"block_decode block_encode raw_decode ini image register_table vector_codec"}
jobs=${JOBS:-$(nproc 2>/dev/null || echo 2)}

if ! command -v clang++ >/dev/null 2>&1; then
  echo "fuzz: clang++ not found; libFuzzer needs clang" >&2
  exit 2
fi

cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_COMPILER=clang++ \
  -DFBC_FUZZ=ON -DFBC_BUILD_TESTS=OFF -DFBC_WERROR=ON >/dev/null
binaries=()
for t in $targets; do binaries+=("fuzz_$t"); done
cmake --build "$build" -j "$jobs" --target "${binaries[@]}"

work="$build/fuzz-work"
rows=()
status=0
for t in $targets; do
  dir="$work/$t"
  rm -rf "$dir/artifacts"
  mkdir -p "$dir/corpus" "$dir/artifacts"
  dict=()
  [ -f "fuzz/$t.dict" ] && dict=("-dict=fuzz/$t.dict")
  seeds=("fuzz/corpus/$t")
  [ -d "fuzz/regressions/$t" ] && seeds+=("fuzz/regressions/$t")
  echo "== fuzz $t (${seconds}s)"
  # One process per target (no -fork): the run stops at the first finding, with exact statistics.
  "$build/fuzz/fuzz_$t" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -malloc_limit_mb=256 -max_len=8192 \
    -print_final_stats=1 -artifact_prefix="$dir/artifacts/" "${dict[@]}" \
    "$dir/corpus" "${seeds[@]}" >"$dir/log" 2>&1 || true
  execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$dir/log" | tail -n1)
  cov=$(grep -E '^#[0-9]+' "$dir/log" | sed -n 's/.* cov: \([0-9]*\).*/\1/p' | tail -n1)
  found=()
  for f in "$dir"/artifacts/*; do
    [ -f "$f" ] || continue
    mkdir -p "fuzz/regressions/$t"
    cp "$f" "fuzz/regressions/$t/"
    found+=("$(basename "$f")")
  done
  if [ ${#found[@]} -gt 0 ] || grep -q '^SUMMARY' "$dir/log"; then
    status=1
    grep -m4 -E '^==[0-9]+==ERROR|^SUMMARY|^[^#].*(Assertion|beyond|decodes|expected|message|changed)' "$dir/log" \
      | sed 's/^/   /' || true
  fi
  rows+=("$t|${execs:-?}|${cov:-?}|${#found[@]}${found[*]:+ (${found[*]})}")
done

printf '\n%-16s %12s %9s  %s\n' target executions coverage findings
for r in "${rows[@]}"; do
  IFS='|' read -r t e c f <<<"$r"
  printf '%-16s %12s %9s  %s\n' "$t" "$e" "$c" "$f"
done
exit $status
