#!/bin/bash
# A random regression on a Slurm cluster:
#
#   regress.sh COUNT SEED OUTDIR [TASKS [fbc random options]]
#
# submits fbc-random.sbatch as an array of TASKS shards (default 8) writing COUNT tests of SEED
# into OUTDIR, then a job that runs 'fbc random report' once every shard has succeeded
# (--dependency=afterok), waits for it and prints the report. The jobs' logs go to
# OUTDIR.logs. The tool is $FBC when set, else fbc on the PATH; OUTDIR must be on a file
# system every node sees. Exit status: the report's (0: every test is there), non-zero when
# a shard failed.
set -euo pipefail

usage() {
  echo "usage: regress.sh COUNT SEED OUTDIR [TASKS [fbc random options]]" >&2
  exit 2
}
[ $# -ge 3 ] || usage
count=$1 seed=$2 outdir=$3 tasks=${4:-8}
shift $(($# < 4 ? 3 : 4))
case $count$tasks in *[!0-9]*) usage ;; esac
[ "$tasks" -ge 1 ] || usage

fbc=${FBC:-fbc}
if ! command -v "$fbc" >/dev/null; then
  echo "regress.sh: $fbc: not found (set FBC or put fbc on the PATH)" >&2
  exit 2
fi
# The jobs run elsewhere and later: give them absolute paths.
case $fbc in */*) fbc=$(realpath "$fbc") ;; esac
export FBC=$fbc
outdir=$(realpath -m "$outdir")
logs=$outdir.logs
mkdir -p "$outdir" "$logs"
here=$(cd "$(dirname "$0")" && pwd)

array=$(sbatch --parsable --array="0-$((tasks - 1))" --output="$logs/shard-%a.out" \
  "$here/fbc-random.sbatch" "$count" "$seed" "$outdir" "$@")
array=${array%%;*}
echo "shards: job array $array, $tasks tasks"

report_cmd=$(printf '%q ' "$fbc" random report "$outdir" --count "$count")
status=0
report=$(sbatch --parsable --wait --job-name=fbc-report --dependency="afterok:$array" \
  --kill-on-invalid-dep=yes --output="$logs/report.out" --wrap="$report_cmd") || status=$?
echo "report: job ${report%%;*}"
if [ -s "$logs/report.out" ]; then
  cat "$logs/report.out"
else
  echo "regress.sh: no report: a shard failed (logs in $logs)" >&2
  # Finished tasks stay visible to scontrol for a few minutes (MinJobAge); no accounting needed.
  scontrol -o show job "$array" 2>/dev/null |
    sed -n 's/.*ArrayTaskId=\([0-9]*\) .*JobState=\([A-Z_]*\) .*ExitCode=\([0-9:]*\).*/\1 \2 \3/p' |
    while read -r task state code; do
      [ "$state" = COMPLETED ] && continue
      echo "shard $task: $state, exit code $code" >&2
      [ -f "$logs/shard-$task.out" ] && tail -n 3 "$logs/shard-$task.out" | sed 's/^/  /' >&2
    done
  [ "$status" -ne 0 ] || status=1
fi
exit "$status"
