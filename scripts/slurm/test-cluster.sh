#!/bin/bash
# A real one-node Slurm cluster on this machine, started for one run of regress.sh:
#
#   test-cluster.sh FBC
#
# starts munged (as the munge user) and slurmctld and slurmd (as root) with all their state in
# a scratch folder, submits a 4-task array over --count 40 through regress.sh, checks that the
# tree is byte-identical to one unsharded run and that the report counts 40 tests, and stops
# the daemons by their process ids on the way out, whatever happened. Needs root and Debian's
# slurmctld, slurmd, slurm-client and munge.
set -euo pipefail

[ $# -eq 1 ] || { echo "usage: test-cluster.sh FBC" >&2; exit 2; }
fbc=$(realpath "$1")
[ -x "$fbc" ] || { echo "test-cluster.sh: $1: not an executable" >&2; exit 2; }
[ "$(id -u)" -eq 0 ] || { echo "test-cluster.sh: must run as root (it starts munged and slurmd)" >&2; exit 2; }
for tool in munged mungekey slurmctld slurmd sbatch sinfo setpriv; do
  command -v "$tool" >/dev/null || { echo "test-cluster.sh: $tool not found" >&2; exit 2; }
done
here=$(cd "$(dirname "$0")" && pwd)
started=$SECONDS

scratch=$(mktemp -d /tmp/fbc-slurm-XXXXXX)
pids=()
cleanup() {
  local status=$?
  for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
  for pid in "${pids[@]}"; do
    for _ in $(seq 50); do kill -0 "$pid" 2>/dev/null || break; sleep 0.1; done
    kill -9 "$pid" 2>/dev/null || true
  done
  if [ "$status" -ne 0 ]; then
    for log in "$scratch"/*.log "$scratch"/*.out; do
      [ -f "$log" ] && { echo "--- $(basename "$log") (last lines)"; tail -n 15 "$log"; }
    done
  fi
  rm -rf "$scratch"
  exit "$status"
}
trap cleanup EXIT
trap 'exit 130' INT TERM
chmod 0711 "$scratch"

# Waits up to $1 seconds for the command after it to succeed.
wait_for() {
  local seconds=$1
  shift
  for _ in $(seq $((seconds * 5))); do
    "$@" >/dev/null 2>&1 && return 0
    sleep 0.2
  done
  echo "test-cluster.sh: timed out after ${seconds} s: $*" >&2
  return 1
}

# munge: a key and a socket of its own, so that nothing else on the machine is touched.
mkdir -p "$scratch/munge"
mungekey --create --keyfile="$scratch/munge/munge.key"
chown -R munge:munge "$scratch/munge"
chmod 0711 "$scratch/munge"
chmod 0400 "$scratch/munge/munge.key"
setpriv --reuid=munge --regid=munge --init-groups munged --foreground \
  --key-file="$scratch/munge/munge.key" --socket="$scratch/munge/socket" \
  --pid-file="$scratch/munge/munged.pid" --seed-file="$scratch/munge/seed" \
  --log-file="$scratch/munged.log" >"$scratch/munged.out" 2>&1 &
pids+=($!)
wait_for 10 test -S "$scratch/munge/socket"

host=$(hostname -s)
memory=$(awk '/^MemTotal:/ { print int($2 / 1024 / 2) }' /proc/meminfo)
mkdir -p "$scratch/state" "$scratch/spool"
export SLURM_CONF=$scratch/slurm.conf
cat >"$SLURM_CONF" <<CONF
ClusterName=fbctest
SlurmctldHost=$host
SlurmctldPort=${SLURMCTLD_PORT:-6817}
SlurmdPort=${SLURMD_PORT:-6818}
SlurmUser=root
AuthType=auth/munge
AuthInfo=socket=$scratch/munge/socket
CredType=cred/munge
StateSaveLocation=$scratch/state
SlurmdSpoolDir=$scratch/spool
SlurmctldPidFile=$scratch/slurmctld.pid
SlurmdPidFile=$scratch/slurmd.pid
SlurmctldLogFile=$scratch/slurmctld.log
SlurmdLogFile=$scratch/slurmd.log
ProctrackType=proctrack/linuxproc
TaskPlugin=task/none
JobAcctGatherType=jobacct_gather/none
AccountingStorageType=accounting_storage/none
SelectType=select/cons_tres
SelectTypeParameters=CR_Core
ReturnToService=2
MpiDefault=none
NodeName=$host CPUs=$(nproc) RealMemory=$memory State=UNKNOWN
PartitionName=test Nodes=$host Default=YES MaxTime=INFINITE State=UP
CONF

slurmctld -D -i -f "$SLURM_CONF" >"$scratch/slurmctld.out" 2>&1 &
pids+=($!)
slurmd -D -f "$SLURM_CONF" >"$scratch/slurmd.out" 2>&1 &
pids+=($!)
wait_for 60 sh -c 'sinfo -h -o %T | grep -qx idle'
echo "cluster up on $host after $((SECONDS - started)) s"

export FBC=$fbc
out=$("$here/regress.sh" 40 2024 "$scratch/tree" 4)
echo "$out"
grep -qx "$scratch/tree: 40 tests" <<<"$out" || { echo "test-cluster.sh: the report does not count 40 tests" >&2; exit 1; }
"$fbc" random --count 40 --seed 2024 --outdir "$scratch/whole" >/dev/null
diff -r "$scratch/whole" "$scratch/tree" || { echo "test-cluster.sh: the shards' tree differs from one run" >&2; exit 1; }
echo "slurm test passed in $((SECONDS - started)) s: 4 shards make the tree of one run"
