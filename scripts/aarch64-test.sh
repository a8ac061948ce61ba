#!/usr/bin/env bash
# The aarch64 build, checked under user-mode emulation: cross-builds the tool (its NEON kernels
# and the checker) with Debian's aarch64 cross compiler, runs its self-test, and compares what it
# encodes and decodes with what this host's build does, byte for byte: the demo chart, and the
# default-register fingerprints when the cross build has SHA-256 (OpenSSL for the target). Emulated timings are no
# benchmark; the one printed at the end is a smoke figure.
#
# usage: scripts/aarch64-test.sh HOST_FBC [BUILD_DIR]   (BUILD_DIR default build-aarch64)
set -euo pipefail
cd "$(dirname "$0")/.."
host_fbc=$(realpath "${1:?usage: scripts/aarch64-test.sh HOST_FBC [BUILD_DIR]}")
build=${2:-build-aarch64}
count=${AARCH64_SELFTEST_COUNT:-3000}

cmake -S . -B "$build" -DCMAKE_SYSTEM_NAME=Linux -DCMAKE_SYSTEM_PROCESSOR=aarch64 \
  -DCMAKE_CXX_COMPILER=aarch64-linux-gnu-g++ -DCMAKE_C_COMPILER=aarch64-linux-gnu-gcc \
  -DCMAKE_BUILD_TYPE=Release -DFBC_BUILD_TESTS=OFF ${AARCH64_CMAKE_ARGS:-}
cmake --build "$build" -j "${JOBS:-2}" --target fbc_cli
arm() { qemu-aarch64 -L /usr/aarch64-linux-gnu "$build/fbc" "$@"; }

echo "-- fbc selftest --count $count (emulated aarch64)"
selftest=$(arm selftest --count "$count")
echo "$selftest"
for check in 'encode\[neon\]' 'decode\[neon\]' 'bytes\[neon\]'; do
  grep -q "$check" <<<"$selftest" || { echo "aarch64: selftest did not check ${check//\\/}" >&2; exit 1; }
done

tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
# The demo chart (a PNG) coded here; both sides decode those codes, then both code the decoded
# chart again from a .pgm (the emulated build may lack libpng) and decode that.
"$host_fbc" demo --out "$tmp/demo" >/dev/null
"$host_fbc" encode "$tmp/demo/chart.png" "$tmp/chart.bin" >/dev/null
"$host_fbc" decode --width 640 --height 480 "$tmp/chart.bin" "$tmp/chart.pgm" >/dev/null
for side in host arm; do
  if [ "$side" = host ]; then fbc=("$host_fbc"); else fbc=(arm); fi
  "${fbc[@]}" decode --width 640 --height 480 "$tmp/chart.bin" "$tmp/$side-1.raw" >/dev/null
  "${fbc[@]}" encode "$tmp/chart.pgm" "$tmp/$side.bin" >/dev/null
  "${fbc[@]}" decode --width 640 --height 480 "$tmp/$side.bin" "$tmp/$side-2.raw" >/dev/null
done
cmp "$tmp/host-1.raw" "$tmp/arm-1.raw"
cmp "$tmp/host.bin" "$tmp/arm.bin"
cmp "$tmp/host-2.raw" "$tmp/arm-2.raw"
echo "-- demo chart: the aarch64 build's codes and decoded pixels equal this host's"

# The default fingerprints, pinned in the README and the tests.
if arm fingerprint >"$tmp/arm.fp" 2>"$tmp/arm.err"; then
  cat "$tmp/arm.fp"
  grep -q 'decode 2b6e1bf7aa3a52107e7cdcc766b3f22cb0a791e7454a923afc5b145348f2401f' "$tmp/arm.fp"
  grep -q 'encode f1de518803ae05d1e2abc91b611140df565e1c602ddf004a3e68418f19cd2a04' "$tmp/arm.fp"
  echo "-- fingerprint: the aarch64 digests are the pinned ones"
else
  echo "-- fingerprint skipped: $(head -1 "$tmp/arm.err")"
fi

echo "-- smoke figure only (emulated, no benchmark):"
arm bench --width 640 --height 480 --repeat 3 --json
