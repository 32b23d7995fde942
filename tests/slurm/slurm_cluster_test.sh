#!/usr/bin/env bash
# shellcheck disable=SC2015 # "check && check || fail" is meant
# The Slurm recipes against real daemons: brings up munged, slurmctld and slurmd as a one-node
# cluster in a temporary folder (own munge key and socket, own slurm.conf on loopback ports),
# sweeps it with the real corebench and corebench-fleet, then drives the health check, a second
# sweep (of the node the check drained, beside the first sweep's files) and the weights through
# scontrol. Every daemon is stopped by its PID at the end, on failure too.
#
# Usage: slurm_cluster_test.sh COREBENCH COREBENCH_FLEET CONTRIB_SLURM_DIR
# Runs only with COREBENCH_SLURM_TEST=1, as root, with Slurm and munge installed; else exit 77
# (skipped). COREBENCH_SLURM_KEEP=1 keeps the temporary folder.
set -euo pipefail

[ $# -eq 3 ] || { echo "usage: $0 COREBENCH COREBENCH_FLEET CONTRIB_SLURM_DIR" >&2; exit 2; }
corebench=$(readlink -f "$1")
fleet=$(readlink -f "$2")
contrib=$(readlink -f "$3")
export PATH="$PATH:/usr/local/sbin:/usr/sbin:/sbin"
unset SLURM_CONF

t0=$(date +%s%N)
say() {
  local ms=$((($(date +%s%N) - t0) / 1000000))
  printf 'slurm-test %3d.%ds %s\n' $((ms / 1000)) $((ms % 1000 / 100)) "$*"
}
skip() {
  echo "slurm-test: skipped ($*)"
  exit 77
}

# Starting daemons as root is not something a plain "ctest" should do behind one's back.
[ "${COREBENCH_SLURM_TEST:-}" = 1 ] || skip "set COREBENCH_SLURM_TEST=1 to run it; scripts/test's slurm stage does"
[ "$(id -u)" -eq 0 ] || skip "needs root to start munged, slurmctld and slurmd"
for tool in munged mungekey slurmctld slurmd sbatch scontrol sinfo squeue scancel; do
  command -v "$tool" >/dev/null 2>&1 || skip "$tool is not installed; scripts/setup --slurm installs it"
done
for program in "$corebench" "$fleet" "$contrib/corebench-sweep" "$contrib/corebench-healthcheck" \
  "$contrib/corebench-weights"; do
  [ -x "$program" ] || { echo "slurm-test: $program is not an executable" >&2; exit 1; }
done

tmp=$(mktemp -d /tmp/corebench-slurm.XXXXXX)
# munged refuses a socket in a folder that not everyone may search.
chmod 711 "$tmp"
mkdir -m 755 "$tmp/munge"
mkdir -m 700 "$tmp/state" "$tmp/spool" "$tmp/log"
mkdir -m 755 "$tmp/records"

daemon_pids=()
daemon_names=()
watchdog=

fail() {
  echo "slurm-test: FAILED: $*" >&2
  exit 1
}

stop_pid() {
  local pid=$1 name=$2 i
  kill -TERM "$pid" 2>/dev/null || return 0
  for ((i = 0; i < 100; i++)); do
    kill -0 "$pid" 2>/dev/null || { wait "$pid" 2>/dev/null || true; return 0; }
    sleep 0.1
  done
  echo "slurm-test: $name ($pid) ignored SIGTERM for 10 s; killing it" >&2
  kill -KILL "$pid" 2>/dev/null || true
  wait "$pid" 2>/dev/null || true
}

cleanup() {
  local status=$? i ids
  trap - EXIT INT TERM
  if [ -n "$watchdog" ]; then
    kill -TERM "$watchdog" 2>/dev/null || true
    wait "$watchdog" 2>/dev/null || true
  fi
  if [ ${#daemon_pids[@]} -ge 2 ]; then
    # Cancel what is left so that no job step outlives the daemons.
    ids=$(timeout 10 squeue -h -o %i 2>/dev/null || true)
    if [ -n "$ids" ]; then
      # shellcheck disable=SC2086 # one id per word
      timeout 10 scancel $ids 2>/dev/null || true
      for ((i = 0; i < 50; i++)); do
        [ -z "$(timeout 5 squeue -h -o %i 2>/dev/null)" ] && break
        sleep 0.2
      done
    fi
  fi
  if [ $status -ne 0 ] && [ $status -ne 77 ]; then
    for f in "$tmp"/log/*.log "$tmp"/records/jobs/*.out; do
      [ -f "$f" ] || continue
      echo "---- last lines of $f" >&2
      tail -n 25 "$f" >&2
    done
  fi
  for ((i = ${#daemon_pids[@]} - 1; i >= 0; i--)); do
    stop_pid "${daemon_pids[i]}" "${daemon_names[i]}"
  done
  if [ "${COREBENCH_SLURM_KEEP:-}" = 1 ]; then
    echo "slurm-test: kept $tmp" >&2
  else
    rm -rf "$tmp"
  fi
  exit $status
}
trap cleanup EXIT
trap 'exit 130' INT TERM

# CTest kills a test that overruns its TIMEOUT (300 s) outright, which would leave the daemons
# running: stop well before that, through the trap.
limit=${COREBENCH_SLURM_TEST_LIMIT:-240}
(
  trap 'kill "$sleeper" 2>/dev/null; exit 0' TERM
  sleep "$limit" &
  sleeper=$!
  if wait "$sleeper"; then
    echo "slurm-test: FAILED: still running after $limit s" >&2
    kill -TERM $$
  fi
) &
watchdog=$!

# wait_for SECONDS WHAT COMMAND...: polls COMMAND every 0.2 s until it succeeds.
wait_for() {
  local limit=$1 what=$2 deadline
  shift 2
  deadline=$(($(date +%s) + limit))
  until "$@" >/dev/null 2>&1; do
    [ "$(date +%s)" -lt "$deadline" ] || fail "$what did not happen within $limit s"
    sleep 0.2
  done
}

port_free() {
  local hex
  hex=$(printf ':%04X' "$1")
  ! awk -v h="$hex" '$4 == "0A" && substr($2, length($2) - 4) == h { found = 1 } END { exit !found }' \
    /proc/net/tcp /proc/net/tcp6 2>/dev/null
}
# Two free neighbouring ports, away from Slurm's defaults (6817, 6818) and below the range the
# kernel hands out to outgoing connections (32768 and up).
ctld_port=
for ((i = 0; i < 50; i++)); do
  p=$((20000 + (RANDOM % 6000) * 2))
  if port_free "$p" && port_free $((p + 1)); then
    ctld_port=$p
    break
  fi
done
[ -n "$ctld_port" ] || fail "no two free ports found"
slurmd_port=$((ctld_port + 1))

# Slurm finds its own node by this name.
node=$(hostname -s)
node_line=$(slurmd -C | head -n 1)
case $node_line in
  "NodeName=$node "*) ;;
  *) fail "slurmd -C describes '$node_line', not this host ($node)" ;;
esac

mungekey --create --keyfile="$tmp/munge/munge.key"
# slurmd's own runs of the health check act only once the test switches them on (at the end),
# so that they cannot race the steps before. They use the test's settings file, which is the one
# thing a cluster would have in /etc/corebench instead.
cat > "$tmp/healthcheck-by-slurmd" <<WRAPPER
#!/bin/sh
[ -e "$tmp/healthcheck-by-slurmd.on" ] || exit 0
COREBENCH_HEALTHCHECK_CONF="$tmp/healthcheck.conf" exec "$contrib/corebench-healthcheck" >> "$tmp/log/healthcheck-by-slurmd.log" 2>&1
WRAPPER
chmod 755 "$tmp/healthcheck-by-slurmd"
: > "$tmp/plugstack.conf"
cat > "$tmp/slurm.conf" <<CONF
ClusterName=corebenchtest
SlurmctldHost=$node(127.0.0.1)
SlurmctldPort=$ctld_port
SlurmdPort=$slurmd_port
SlurmUser=root
SlurmdUser=root
AuthType=auth/munge
AuthInfo=socket=$tmp/munge/munge.socket
CredType=cred/munge
StateSaveLocation=$tmp/state
SlurmdSpoolDir=$tmp/spool
SlurmctldPidFile=$tmp/slurmctld.pid
SlurmdPidFile=$tmp/slurmd.pid
SlurmctldLogFile=$tmp/log/slurmctld.log
SlurmdLogFile=$tmp/log/slurmd.log
PlugStackConfig=$tmp/plugstack.conf
ProctrackType=proctrack/linuxproc
TaskPlugin=task/none
SelectType=select/cons_tres
SelectTypeParameters=CR_Core
JobAcctGatherType=jobacct_gather/none
AccountingStorageType=accounting_storage/none
JobCompType=jobcomp/none
MpiDefault=none
ReturnToService=2
SlurmctldTimeout=30
SlurmdTimeout=30
KillWait=5
HealthCheckProgram=$tmp/healthcheck-by-slurmd
HealthCheckInterval=2
HealthCheckNodeState=IDLE
$node_line NodeAddr=127.0.0.1 Features=ssd State=UNKNOWN
PartitionName=cb Nodes=$node Default=YES MaxTime=INFINITE State=UP
CONF
export SLURM_CONF="$tmp/slurm.conf"

start_daemon() {
  local name=$1
  shift
  "$@" > "$tmp/log/$name.log" 2>&1 &
  daemon_pids+=($!)
  daemon_names+=("$name")
}

start_daemon munged munged --foreground --socket="$tmp/munge/munge.socket" \
  --key-file="$tmp/munge/munge.key" --pid-file="$tmp/munge/munged.pid" \
  --seed-file="$tmp/munge/munged.seed"
wait_for 10 "munged's socket" test -S "$tmp/munge/munge.socket"
start_daemon slurmctld slurmctld -D -c
wait_for 20 "slurmctld answering" scontrol ping
start_daemon slurmd slurmd -D

# shellcheck source=SCRIPTDIR/../../contrib/slurm/node_state.sh
. "$contrib/node_state.sh"
state_now() { read_node "$node" && printf '%s' "$node_state"; }
reason_now() { read_node "$node" && printf '%s' "$node_reason"; }
state_is() { [ "$(state_now)" = "$1" ]; }
wait_for 30 "node $node IDLE" state_is IDLE
say "cluster up: node $node $(state_now), slurmctld port $ctld_port, slurmd port $slurmd_port"

# ---- sweep: one exclusive job on the node, then the report job
# Whether a run on this shared machine is disturbed is a matter of its load: the jobs (which get
# this environment from sbatch) take the conditions of a clean run, as the end-to-end tests of run
# do, so that the health check below has a run to judge.
export COREBENCH_FLEET_TEST_CONDITIONS
COREBENCH_FLEET_TEST_CONDITIONS=$(readlink -f "$(dirname "$0")/../fleet/data/conditions-clean.json")
# Runs the sweep with the given node selection; sets sweep_out, bench_job, report_job and report
# (the report's path without .txt).
sweep() {
  sweep_out=$("$contrib/corebench-sweep" --out "$tmp/records" "$@" --test SingleSpeed \
    --fleet "$fleet" --corebench "$corebench" --time 5)
  bench_job=$(printf '%s\n' "$sweep_out" | awk -v n="$node" '$1 == n { print $2 }')
  report_job=$(printf '%s\n' "$sweep_out" | awk '$1 == "report" { print $2 }')
  report=$(printf '%s\n' "$sweep_out" | awk '$1 == "report" { print $3 }')
  report=${report%.txt}
  [ -n "$bench_job" ] && [ -n "$report_job" ] && [ -n "$report" ] ||
    fail "unexpected sweep output: $sweep_out"
}
job_field() {
  scontrol show job "$1" | awk -v k="$2" '{ for (i = 1; i <= NF; i++) if (index($i, k "=") == 1) { print substr($i, length(k) + 2); exit } }'
}
jobs_done() {
  local id state
  for id in "$@"; do
    state=$(job_field "$id" JobState)
    case $state in PENDING|RUNNING|CONFIGURING|COMPLETING|SUSPENDED|"") return 1 ;; esac
  done
}
# Waits for the sweep's jobs, which must both end COMPLETED, and checks the node's records (n of
# them, each with its log) and the report; sets ps to the node's newest score in the report.
sweep_done() {
  local n=$1 id state row
  wait_for 120 "jobs $bench_job and $report_job ending" jobs_done "$bench_job" "$report_job"
  for id in "$bench_job" "$report_job"; do
    state=$(job_field "$id" JobState)
    [ "$state" = COMPLETED ] || fail "job $id ended $state (exit $(job_field "$id" ExitCode))"
  done
  say "jobs $bench_job (benchmark) and $report_job (report) COMPLETED"
  records=("$tmp/records/$node/$node-SingleSpeed-"*.json)
  [ ${#records[@]} -eq "$n" ] && [ -f "${records[0]}" ] ||
    fail "expected $n SingleSpeed records of $node, found: ${records[*]}"
  for record in "${records[@]}"; do
    [ -f "${record%.json}.log" ] || fail "the raw log is not beside $record"
    grep -q '"ps_result"' "$record" || fail "$record has no ps_result"
  done
  [ -s "$report.txt" ] && [ -s "$report.csv" ] && grep -q "id=\"report-data\"" "$report.html" || fail "report $report.txt / .csv / .html missing"
  row=$(awk -F, -v n="$node" 'NR > 1 && $1 == n && $2 == "SingleSpeed"' "$report.csv")
  [ "$(printf '%s\n' "$row" | grep -c .)" -eq 1 ] || fail "report has no single row for $node: $(cat "$report.csv")"
  [ "$(printf '%s\n' "$row" | cut -d, -f13)" = "$n" ] || fail "report row does not count $n records: $row"
  ps=$(printf '%s\n' "$row" | cut -d, -f6)
  printf '%s' "$ps" | grep -Eq '^[0-9]+([.][0-9]+)?$' || fail "report row has no score: $row"
  awk -v ps="$ps" 'BEGIN { exit !(ps > 0) }' || fail "score $ps is not positive"
  grep -q "$node" "$report.txt" || fail "the table report does not name $node"
  say "records ${records[*]##*/}, report $(basename "$report").txt/.csv: $node $ps PS"
}

sweep --partition cb
say "sweep submitted: $(printf '%s' "$sweep_out" | tr '\n' '|')"
[ "$(printf '%s\n' "$sweep_out" | wc -l)" -eq 2 ] || fail "sweep printed more than the node and report lines"
sweep_done 1

# ---- health check, run the way slurmd runs it: no SLURM_CONF, a bare PATH
# write_conf FLOOR [TEST]
write_conf() {
  cat > "$tmp/healthcheck.conf" <<HC
# written by the test
RECORDS=$tmp/records
FLOOR=$1
MAX_AGE=1d
TEST=${2:-SingleSpeed}
SLURM_CONF=$tmp/slurm.conf   # slurmd does not pass it on
FLEET="$fleet"
HC
}
healthcheck() {
  env -i SLURMD_NODENAME="$node" COREBENCH_HEALTHCHECK_CONF="$tmp/healthcheck.conf" \
    timeout 60 "$contrib/corebench-healthcheck"
}

# Floors far above and below the node's newest score, ps. The check words its floor as %g does
# (no trailing zeros), so the floors are written so too.
set_floors() {
  high=$(awk -v ps="$ps" 'BEGIN { printf "%g", ps * 2 + 1 }')
  low=$(awk -v ps="$ps" 'BEGIN { printf "%g", ps / 2 }')
}
set_floors

write_conf "$high"
out=$(healthcheck) || fail "health check failed: $out"
say "health check, floor $high: $out"
state_is IDLE+DRAIN || fail "node is $(state_now) after a floor above its score, not IDLE+DRAIN"
reason=$(reason_now)
case $reason in "corebench: "*"below floor $high"*) ;; *) fail "drain reason is '$reason'" ;; esac
say "node $(state_now), reason: $reason"
# sinfo -R cuts a reason at 20 characters; the README's wider format shows it whole.
line=$(sinfo -h -R -o "%60E %9u %19H %N")
case $line in "$reason "*" $node") ;; *) fail "sinfo -R -o \"%60E %9u %19H %N\" shows: $line" ;; esac

write_conf "$low"
out=$(healthcheck) || fail "health check failed: $out"
say "health check, floor $low: $out"
wait_for 15 "node $node back to IDLE" state_is IDLE
say "node $(state_now)"

# Someone else's drain, as the real scontrol shows it, is never relabelled (the stand-in test
# has the other cases).
scontrol update NodeName="$node" State=DRAIN Reason="maintenance: fan"
out=$(healthcheck) || fail "health check failed: $out"
state_is IDLE+DRAIN && [ "$(reason_now)" = "maintenance: fan" ] ||
  fail "someone else's drain became $(state_now) '$(reason_now)': $out"
scontrol update NodeName="$node" State=RESUME
wait_for 15 "node $node back to IDLE" state_is IDLE

# Records the checking user cannot read: one line, status 1, and the node, drained by an earlier
# check, stays as it is although its record would pass.
[ -s "$tmp/records/corebench-summary.json" ] || fail "the report job wrote no summary"
scontrol update NodeName="$node" State=DRAIN Reason="corebench: earlier"
chmod 700 "$tmp/records"
out=$(env -i SLURMD_NODENAME="$node" COREBENCH_HEALTHCHECK_CONF="$tmp/healthcheck.conf" \
  timeout 60 setpriv --reuid=nobody --regid=nogroup --clear-groups "$contrib/corebench-healthcheck" 2>&1) &&
  fail "a check that could not read the records succeeded: $out"
chmod 755 "$tmp/records"
case $out in "corebench-healthcheck: nothing changed: cannot decide: cannot read the records folder"*) ;;
  *) fail "unreadable records: $out" ;; esac
state_is IDLE+DRAIN && [ "$(reason_now)" = "corebench: earlier" ] || fail "unreadable records changed the node to $(state_now) '$(reason_now)'"
say "records unreadable: $out; node $(state_now)"

# TEST set to another test than the sweep runs would drain every node: the check names the
# mismatch and changes nothing.
write_conf "$low" All
out=$(healthcheck 2>&1) && fail "a check of a test the node never ran succeeded: $out"
case $out in "corebench-healthcheck: nothing changed: cannot decide: $node has records of SingleSpeed but none of All;"*) ;;
  *) fail "a check of another test: $out" ;; esac
state_is IDLE+DRAIN && [ "$(reason_now)" = "corebench: earlier" ] || fail "a check of another test changed the node to $(state_now) '$(reason_now)'"
say "TEST=All: $out"

# ---- a second sweep, of the node the check drained, which the sweep resumes: its report job
# finds the first sweep's summary and reports beside the records, and must read the records only.
sweep --nodes "$node"
say "second sweep submitted: $(printf '%s' "$sweep_out" | tr '\n' '|')"
sweep_done 2
wait_for 15 "node $node back to IDLE" state_is IDLE
set_floors

# ---- weights: one node, so the fastest: Weight 100, tier cb_fast replacing the tier that an
# earlier run gave it, its own feature kept. A host that is no node of the cluster, whose CPU name
# holds a line break and a row of this node at 0.001 PS after it, changes nothing.
scontrol update NodeName="$node" AvailableFeatures=ssd,cb_slow ActiveFeatures=ssd,cb_slow
mkdir "$tmp/records/ghost"
sed -e 's/"host": .*/"host": "ghost",/' \
  -e "s/\"cpu_model\": .*/\"cpu_model\": \"x\\\\n$node,SingleSpeed,2026-01-01T00:00:00Z,no,,0.001,\",/" \
  "${records[0]}" > "$tmp/records/ghost/ghost-${records[0]##*/"$node"-}"
out=$("$contrib/corebench-weights" --test SingleSpeed --fleet "$fleet" "$tmp/records") ||
  fail "corebench-weights failed: $out"
say "weights: $(printf '%s' "$out" | tr '\n' '|')"
info=$(scontrol show node "$node")
printf '%s\n' "$info" | grep -q ' Weight=100 ' || fail "Weight not set: $info"
printf '%s\n' "$info" | grep -q 'AvailableFeatures=ssd,cb_fast$' &&
  printf '%s\n' "$info" | grep -q 'ActiveFeatures=ssd,cb_fast$' || fail "features not set: $info"
printf '%s\n' "$out" | grep -qx "NodeName=$node ... Weight=100 Features=ssd,cb_fast" ||
  fail "no slurm.conf line printed: $out"
say "node $node: $(printf '%s\n' "$info" | grep -o 'Weight=[0-9]*') $(printf '%s\n' "$info" | grep -o 'AvailableFeatures=[^ ]*')"
# slurmd runs the check by itself, without SLURM_CONF, on an idle node that is drained too: a
# node that the check drained comes back once its record passes.
write_conf "$high"
healthcheck >/dev/null || fail "health check failed"
state_is IDLE+DRAIN || fail "node is $(state_now) after a floor above its score, not IDLE+DRAIN"
write_conf "$low"
touch "$tmp/healthcheck-by-slurmd.on"
say "slurmd's health check switched on (floor $low), node $(state_now)"
wait_for 30 "slurmd's health check resuming node $node" state_is IDLE
say "node $(state_now): $(grep -h '^corebench-healthcheck' "$tmp/log/healthcheck-by-slurmd.log" | head -n 1)"
say "passed"
