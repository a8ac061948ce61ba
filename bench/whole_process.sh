#!/usr/bin/env bash
# Whole-process times of 'fbc encode' and 'fbc decode' as a user runs them, beside 'cp' of the
# same files: a W x H (default 3840x2160) .raw of plain 12-bit samples in a private temporary
# folder, page cache warm, each command run RUNS times (default 7), the median wall time
# reported. Every output is removed before its run, so each command creates its file afresh.
#   usage: bench/whole_process.sh [FBC]      (FBC default build/fbc; W, H, RUNS from the environment)
set -euo pipefail
FBC=${1:-build/fbc}
W=${W:-3840}
H=${H:-2160}
RUNS=${RUNS:-7}
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT

# A picture with gradients, flat runs, edges and noise (a 32-bit LCG), samples 0..4095.
perl -e '
  my ($w, $h) = @ARGV; my $s = 12345;
  for my $y (0 .. $h - 1) {
    my @row;
    for my $x (0 .. $w - 1) {
      $s = ($s * 1103515245 + 12345) & 0xFFFFFFFF;
      my $band = int($y / 64) % 4;
      my $v = $band == 0 ? ($x * 7 + $y * 3) % 4096
            : $band == 1 ? (int($x / 40) % 2 ? 3500 : 300)
            : $band == 2 ? 2048 + (($s >> 16) & 63)
            :              ($s >> 20);
      push @row, $v;
    }
    print pack("v*", @row);
  }' "$W" "$H" > "$dir/in.raw"
"$FBC" encode --width "$W" --height "$H" "$dir/in.raw" "$dir/in.bin"

# Median wall milliseconds of RUNS runs of a command writing the file $out.
median_ms() {
  local out=$1; shift
  local times=()
  "$@" >/dev/null  # warm-up
  for ((r = 0; r < RUNS; ++r)); do
    rm -f "$out"
    local a=$EPOCHREALTIME
    "$@" >/dev/null
    local b=$EPOCHREALTIME
    times+=("$(awk -v a="$a" -v b="$b" 'BEGIN { printf "%.2f", (b - a) * 1000 }')")
  done
  printf '%s\n' "${times[@]}" | sort -g | awk -v n="$RUNS" 'NR == int(n / 2) + 1'
}

threads=$(nproc)
# A binary without --threads (an older build, for before/after figures) runs its one way.
if ! "$FBC" encode --help | grep -q -- --threads; then
  threads=1
  thread_option() { :; }
else
  thread_option() { echo --threads "$1"; }
fi
cp_raw=$(median_ms "$dir/c.raw" cp "$dir/in.raw" "$dir/c.raw")
cp_bin=$(median_ms "$dir/c.bin" cp "$dir/in.bin" "$dir/c.bin")
line() { awk -v n="$1" -v t="$2" -v c="$3" -v w="$4" 'BEGIN { printf "  %-34s %8.1f ms %6.2fx cp of %s\n", n, t, t / c, w }'; }
echo "whole process, ${W}x${H}, warm page cache, median of $RUNS runs, load average $(cut -d' ' -f1 /proc/loadavg)"
awk -v t="$cp_raw" -v s="$(stat -c %s "$dir/in.raw")" 'BEGIN { printf "  %-34s %8.1f ms (%.1f MB)\n", "cp of the .raw", t, s / 1e6 }'
awk -v t="$cp_bin" -v s="$(stat -c %s "$dir/in.bin")" 'BEGIN { printf "  %-34s %8.1f ms (%.1f MB)\n", "cp of the .bin", t, s / 1e6 }'
for n in 1 "$threads"; do
  t=$(median_ms "$dir/o.bin" "$FBC" encode $(thread_option "$n") --width "$W" --height "$H" "$dir/in.raw" "$dir/o.bin")
  line "fbc encode --threads $n (.raw)" "$t" "$cp_raw" "the .raw"
  [ "$threads" = 1 ] && break
done
for n in 1 "$threads"; do
  t=$(median_ms "$dir/o.raw" "$FBC" decode $(thread_option "$n") --width "$W" --height "$H" "$dir/in.bin" "$dir/o.raw")
  line "fbc decode --threads $n (.bin)" "$t" "$cp_bin" "the .bin"
  [ "$threads" = 1 ] && break
done
