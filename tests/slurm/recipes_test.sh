#!/usr/bin/env bash
# shellcheck disable=SC2015 # "check && check || fail" is meant
# The decisions of the Slurm recipes, with stand-ins for scontrol, sinfo, sbatch and
# corebench-fleet on PATH: what gets drained, resumed or left alone, what gets submitted and how
# the job scripts quote their paths; how nodes are weighted, by this build's corebench-fleet
# (weights reads records, which a stand-in would not). The real daemons are exercised by
# slurm_cluster_test.sh; this covers the cases a one-node cluster cannot show (stale and missing
# records, other hosts, several nodes), without root.
#
# Usage: recipes_test.sh CONTRIB_SLURM_DIR COREBENCH_FLEET
set -euo pipefail

contrib=$(readlink -f "$1")
fleet=$(readlink -f "$2")
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
stub=$tmp/stub
mkdir -p "$stub/bin" "$stub/nodes" "$tmp/records"
export STUB=$stub
failures=0

fail() {
  echo "FAILED: $*" >&2
  failures=$((failures + 1))
}

# scontrol: nodes are files $STUB/nodes/NAME holding state, reason, weight and features lines;
# every update is appended to $STUB/calls.
cat > "$stub/bin/scontrol" <<'STUB'
#!/usr/bin/env bash
[ ! -e "$STUB/scontrol_hangs" ] || exec sleep 100
f="$STUB/nodes/$3"
case "$1 $2" in
  "show node")
    [ -f "$f" ] || { echo "Node $3 not found"; exit 1; }
    . "$f"
    echo "NodeName=$3 Arch=x86_64 CoresPerSocket=2"
    echo "   AvailableFeatures=${features:-(null)}"
    echo "   State=$state ThreadsPerCore=1 TmpDisk=0 Weight=${weight:-1} Owner=N/A"
    [ -z "$reason" ] || echo "   Reason=$reason [root@2026-11-23T10:00:00]"
    exit 0 ;;
  "show hostnames")
    printf '%s\n' "$3" | tr ',' '\n'
    exit 0 ;;
esac
[ "$1" = update ] || { echo "scontrol stub: $*" >&2; exit 1; }
shift
printf '%s\n' "$*" >> "$STUB/calls"
name=${1#NodeName=}
f="$STUB/nodes/$name"
[ -f "$f" ] || { echo "Node $name not found"; exit 1; }
. "$f"
shift
for arg in "$@"; do
  case $arg in
    State=DRAIN) state="${state%%+*}+DRAIN" ;;
    State=RESUME) state=${state%%+*} ;;
    Reason=*) reason=${arg#Reason=} ;;
    Weight=*) weight=${arg#Weight=} ;;
    AvailableFeatures=*) features=${arg#AvailableFeatures=} ;;
    ActiveFeatures=*) [ "${arg#ActiveFeatures=}" = "$features" ] || { echo "active not available"; exit 1; } ;;
  esac
done
case $state in *DRAIN*) ;; *) reason= ;; esac
printf 'state=%q\nreason=%q\nweight=%q\nfeatures=%q\n' "$state" "$reason" "${weight:-1}" "$features" > "$f"
STUB

# corebench-fleet: compare prints $STUB/report.csv and exits with $STUB/compare_status, check
# prints $STUB/verdict after its first word, the status; each records its arguments.
cat > "$stub/bin/corebench-fleet" <<'STUB'
#!/usr/bin/env bash
printf '<%s>' "$@" > "$STUB/$1_args"
[ "$1" = run ] && exit 0
if [ "$1" = check ]; then
  { read -r status verdict; printf '%s\n' "$verdict"; cat; } < "$STUB/verdict"
  exit "$status"
fi
[ "$1" = compare ] || exit 2
printf '<%s>' "$@" > "$STUB/compare_args"
cat "$STUB/report.csv"
exit "$(cat "$STUB/compare_status" 2>/dev/null || echo 0)"
STUB

# sbatch: keeps each job's options and script, prints ids 101, 102, ...
cat > "$stub/bin/sbatch" <<'STUB'
#!/usr/bin/env bash
n=$(($(cat "$STUB/jobs" 2>/dev/null || echo 100) + 1))
echo "$n" > "$STUB/jobs"
printf '%s\n' "$@" > "$STUB/job-$n.args"
cat > "$STUB/job-$n.sh"
echo "$n;cluster"
STUB

cat > "$stub/bin/sinfo" <<'STUB'
#!/usr/bin/env bash
printf '<%s>' "$@" > "$STUB/sinfo_args"
ls "$STUB/nodes"
STUB
chmod +x "$stub/bin/"*
export PATH="$stub/bin:$PATH"

set_node() {
  printf 'state=%q\nreason=%q\nweight=%q\nfeatures=%q\n' "$2" "$3" "${4:-1}" "${5:-}" > "$stub/nodes/$1"
}
node_field() {
  # shellcheck disable=SC1090 # a node file of the stand-in
  (. "$stub/nodes/$1" && eval "printf '%s' \"\$$2\"")
}
header=host,test,started_at,flagged,reason,ps_result,group_median,ratio,robust_z,min_thread_ps,median_thread_ps,cv,records,logical_cpus,cpu_model,file
now_iso=$(date -u +%Y-%m-%dT%H:%M:%SZ)
old_iso=$(date -u -d '10 days ago' +%Y-%m-%dT%H:%M:%SZ)
report() {
  { echo "$header"; printf '%s\n' "$@"; } > "$stub/report.csv"
}
row() { # host test started_at flagged reason ps
  echo "$1,$2,$3,$4,$5,$6,100,1,0,40,41,,3,2,\"Xeon, Gold\",$tmp/records/$1-$2.json"
}

# ---------------------------------------------------------------- health check
conf=$tmp/healthcheck.conf
write_conf() {
  cat > "$conf" <<CONF
# comment line
RECORDS="$tmp/records"
FLOOR=${1-}      # PS
MAX_AGE=${2-}
DRIFT=${3-}
  TEST = 'All'
WRITER=slurm
SLURM_CONF=$tmp/slurm.conf
HOST=n1
FLEET=corebench-fleet
CONF
  chmod 600 "$conf"
}
write_conf 50 8d 0.05
r="30.000 PS below floor 50"
# state | reason (\n a newline) | check's status and line | expected state | reason | output
# (after "slurm-n1: ")
while IFS='|' read -r state reason verdict want_state want_reason want_out; do
  set_node slurm-n1 "$state" "$(printf '%b' "$reason")"
  echo "$verdict" > "$stub/verdict"
  rm -f "$stub/calls"
  out=$(env -u SLURM_CONF SLURMD_NODENAME=slurm-n1 COREBENCH_HEALTHCHECK_CONF="$conf" \
    "$contrib/corebench-healthcheck" 2>&1) || fail "$verdict on $state '$reason': $out"
  got="$(node_field slurm-n1 state)|$(node_field slurm-n1 reason)"
  [ "$got" = "$want_state|$want_reason" ] || fail "$verdict on $state '$reason': $got, expected $want_state|$want_reason"
  [ "$out" = "corebench-healthcheck: slurm-n1: $want_out" ] || fail "$verdict on $state '$reason' printed: $out"
  case $want_out in drained*|resumed*) ;; *) [ ! -e "$stub/calls" ] || fail "$verdict on $state '$reason': updated $(cat "$stub/calls")" ;; esac
done <<ROWS
IDLE||0 healthy: All 90.500 PS at T|IDLE||healthy (All 90.500 PS at T)
IDLE+DRAIN|corebench: $r|0 healthy: All 90.500 PS at T|IDLE||resumed (All 90.500 PS at T; was: corebench: $r)
IDLE+DRAIN|corebench: old\\nsecond line|0 healthy: All 90.500 PS at T|IDLE||resumed (All 90.500 PS at T; was: corebench: old)
IDLE+DRAIN|corebench-like but not ours|0 healthy: X|IDLE+DRAIN|corebench-like but not ours|healthy (X), left drained by someone else: corebench-like but not ours
MIXED+DRAIN|disk|0 healthy: X|MIXED+DRAIN|disk|healthy (X), left drained by someone else: disk
IDLE||1 drain: $r|IDLE+DRAIN|corebench: $r|drained (corebench: $r)
IDLE+DRAIN|corebench: $r|1 drain: $r|IDLE+DRAIN|corebench: $r|stays drained (corebench: $r)
IDLE+DRAIN|corebench: old|1 drain: $r|IDLE+DRAIN|corebench: $r|drained (corebench: $r)
IDLE+DRAIN|fan|1 drain: $r|IDLE+DRAIN|fan|would drain (corebench: $r), but it is already drained by someone else: fan
ROWS
[ "$(cat "$stub/check_args")" = "<check><--summary><$tmp/records/corebench-summary.json><--host><n1><--test><All><--writer><slurm><--floor><50><--max-age><8d><--drift><0.05><$tmp/records>" ] ||
  fail "check ran as $(cat "$stub/check_args")"
# Limits go to check as written (0 in any spelling is none there), unset ones not at all; a
# settings file may start with a UTF-8 byte order mark.
echo "0 healthy: X" > "$stub/verdict"
set_node slurm-n1 IDLE ""
while IFS='|' read -r floor age drift bom limits; do
  write_conf "$floor" "$age" "$drift"
  if [ -n "$bom" ]; then
    sed -i '1d' "$conf" && { printf '\357\273\277'; cat "$conf"; } > "$conf.new" && mv "$conf.new" "$conf"
    chmod 600 "$conf"
  fi
  out=$(SLURMD_NODENAME=slurm-n1 "$contrib/corebench-healthcheck" --conf "$conf" 2>&1) ||
    fail "limits '$floor' '$age' '$drift' $bom: $out"
  [ "$(cat "$stub/check_args")" = "<check><--summary><$tmp/records/corebench-summary.json><--host><n1><--test><All><--writer><slurm>$limits<$tmp/records>" ] ||
    fail "limits '$floor' '$age' '$drift' $bom: check ran as $(cat "$stub/check_args")"
done <<ROWS
0.0|0|0.0||<--floor><0.0><--max-age><0><--drift><0.0>
|||bom|
ROWS

# stall TOOL...: stand-ins for TOOL, first on PATH, that never return for a path in the records
# folder, as on a hard-mounted NFS that stalled; other paths go to the real TOOL.
stalled=$tmp/stalled
mkdir "$stalled"
export PATH="$stalled:$PATH"
stall() {
  local tool
  for tool in "$@"; do
    # shellcheck disable=SC2016 # expanded by the stand-in
    printf '#!/bin/sh\nfor a; do case $a in "%s"*) exec sleep 1000 ;; esac; done\nexec %s "$@"\n' \
      "$tmp/records" "$(type -P "$tool")" > "$stalled/$tool"
    chmod 755 "$stalled/$tool"
  done
}

# Faults: whatever the check cannot judge or should not trust, it leaves the node as it is, says
# why in one line and exits 1, within its 30 s. "setup" is run before the check and undone after
# it.
while IFS='|' read -r verdict setup expect; do
  write_conf 50 8d
  echo "$verdict" > "$stub/verdict"
  set_node slurm-n1 IDLE+DRAIN "corebench: x"
  rm -f "$stub/calls"
  eval "$setup"
  out=$(SLURMD_NODENAME=slurm-n1 timeout 40 "$contrib/corebench-healthcheck" --conf "$conf" 2>&1) && status=0 || status=$?
  chmod 700 "$tmp/records"; chmod 755 "$stub/bin/corebench-fleet"; rm -f "$stub/scontrol_hangs" "$stalled"/*; conf=$tmp/healthcheck.conf
  [ $status -eq 1 ] && [ "$(printf '%s\n' "$out" | wc -l)" -eq 1 ] || fail "$expect: exit $status: $out"
  case $out in "corebench-healthcheck: nothing changed: "*"$expect"*) ;; *) fail "message '$out' lacks '$expect'" ;; esac
  [ ! -e "$stub/calls" ] && [ "$(node_field slurm-n1 state)" = IDLE+DRAIN ] || fail "$expect: the node was updated"
done <<ROWS
8 cannot decide: cannot read the records folder R||cannot decide: cannot read the records folder R
2 corebench-fleet: --max-age must look like 3600, 90m||check refused the settings: corebench-fleet: --max-age must look like
3 Segmentation fault||check failed with status 3: Segmentation fault
1 drain: X|printf '1 drain: X\\nforged\\n' > "$stub/verdict"|unexpected answer of corebench-fleet check: drain: X forged
0 healthy: X|touch "$stub/scontrol_hangs"|scontrol show node slurm-n1: no answer within 5 s
1 drain: X|chmod g+w "$conf"|settings file $conf (or its folder) can be written by others than root
1 drain: X|chmod o+w "$stub/bin/corebench-fleet"|$stub/bin/corebench-fleet (or its folder) can be written by others than root
1 drain: X|echo FLOR=60 >> "$conf"|$conf:11: unknown setting FLOR
1 drain: X|echo FLOOR=60 >> "$conf"|$conf:11: FLOOR is set twice (first on line 3)
1 drain: X|sed -i 's/^RECORDS=.*/RECORDS=/' "$conf"|RECORDS (the shared records folder) is not set
1 drain: X|conf=$tmp/missing.conf|cannot read settings file $tmp/missing.conf
1 drain: X|cp "$contrib/healthcheck.conf.example" "$tmp/example.conf"; conf=$tmp/example.conf|records folder /shared/corebench/records is not there
1 drain: X|stall test|records folder $tmp/records did not answer within 5 s
ROWS

# ---------------------------------------------------------------- sweep
rm -f "$stub"/nodes/* "$stub"/calls "$stub"/jobs "$stub"/job-*
set_node n1 IDLE ""
set_node n2 IDLE+DRAIN "maintenance"
set_node n3 IDLE+DRAIN "corebench: 3 PS below floor 50"
set_node n4 DOWN+NOT_RESPONDING "Not responding"
set_node n5 MIXED ""
odd="$tmp/it's a dir"
out=$("$contrib/corebench-sweep" --out "$odd/records" --partition farm --test SingleSpeed \
  --fleet "$odd/bin/corebench-fleet" --corebench "$odd/bin/core bench" --time 7 2>"$tmp/sweep.err") ||
  fail "sweep failed: $out $(cat "$tmp/sweep.err")"
[ "$(cat "$stub/sinfo_args")" = "<-h><-N><-p><farm><-o><%N>" ] || fail "sinfo ran as $(cat "$stub/sinfo_args")"
expected="n1 101
n3 102
n5 103
report 104 $odd/records/corebench-report-"
case $out in "$expected"*.txt) ;; *) fail "sweep printed: $out" ;; esac
grep -q "skipped n2: drained by someone else (maintenance)" "$tmp/sweep.err" || fail "n2 not reported: $(cat "$tmp/sweep.err")"
grep -q "skipped n4: DOWN+NOT_RESPONDING (Not responding)" "$tmp/sweep.err" || fail "n4 not reported: $(cat "$tmp/sweep.err")"
[ "$(cat "$stub/calls")" = "NodeName=n3 State=RESUME" ] || fail "sweep updated: $(cat "$stub/calls")"
for n in 101 102 103; do
  grep -qx -- --exclusive "$stub/job-$n.args" && grep -qx -- --time=7 "$stub/job-$n.args" &&
    grep -qx -- --partition=farm "$stub/job-$n.args" || fail "job $n options: $(cat "$stub/job-$n.args")"
done
grep -qx -- --nodelist=n3 "$stub/job-102.args" || fail "job 102 is not bound to n3"
grep -qx -- --dependency=afterany:101:102:103 "$stub/job-104.args" || fail "report job: $(cat "$stub/job-104.args")"
# The job scripts run under sh on the nodes; they must hand the odd paths over intact.
mkdir -p "$odd/bin"
cp "$stub/bin/corebench-fleet" "$odd/bin/corebench-fleet"
sh "$stub/job-101.sh" || fail "the benchmark job script failed"
[ "$(cat "$stub/run_args")" = "<run><--reruns><2><--pause><60><--out><$odd/records><--corebench><$odd/bin/core bench><--><SingleSpeed>" ] ||
  fail "the benchmark job ran: $(cat "$stub/run_args")"
report_base=$(printf '%s\n' "$out" | awk '$1 == "report" { sub(/^report [0-9]+ /, ""); print }')
report_base=${report_base%.txt}
# compare's status | the report job's | its files
report "$(row n1 All "$now_iso" no "" 90)"
while read -r status want files; do
  echo "$status" > "$stub/compare_status"
  rm -f "$report_base".*
  sh "$stub/job-104.sh" && got=0 || got=$?
  [ "$got $(cd "$odd/records" && ls -m -w 0 "${report_base##*/}".* 2>/dev/null | tr -d ' ')" = "$want $files" ] ||
    fail "report job with compare status $status: exit $got, files: $(ls "$odd/records")"
done <<ROWS
1 0 ${report_base##*/}.csv,${report_base##*/}.html,${report_base##*/}.txt
7 7 ${report_base##*/}.csv,${report_base##*/}.html,${report_base##*/}.txt
2 2 
3 3 
ROWS
echo 0 > "$stub/compare_status"
[ "$(cat "$stub/compare_args")" = "<compare><--format><csv><--summary><$odd/records/corebench-summary.json><$odd/records>" ] ||
  fail "the report job compared $(cat "$stub/compare_args")"

rm -f "$stub"/calls "$stub"/jobs
out=$("$contrib/corebench-sweep" --out "$tmp/records" --nodes n2,n4 2>&1) && fail "a sweep with no usable node succeeded: $out"
[ ! -e "$stub/jobs" ] || fail "a sweep with no usable node submitted jobs"
"$contrib/corebench-sweep" --partition farm >/dev/null 2>&1 && fail "a sweep without --out succeeded"
"$contrib/corebench-sweep" --out "$tmp/records" --time 0 >/dev/null 2>&1 && fail "a zero time limit was taken"
for bad in "--reruns 11" "--pause 3601" "--pause 1e3"; do
  # shellcheck disable=SC2086 # the option and its value
  "$contrib/corebench-sweep" --out "$tmp/records" $bad >/dev/null 2>&1 && fail "sweep took $bad"
done
[ ! -e "$stub/jobs" ] || fail "a refused sweep submitted jobs"

# ---------------------------------------------------------------- weights
# The real corebench-fleet weighs the nodes from records of its own format. A CPU name holding a
# line break must not add a row for another node, and a stale record of the test spelt otherwise
# must not stand for the node's newest.
rm -f "$stub"/nodes/* "$stub"/calls
set_node a IDLE "" 1 "ssd,cb_slow"
set_node b IDLE "" 1 ""
set_node c IDLE "" 1 "gpu"
set_node d IDLE "" 1 "cb_mid"
set_node y IDLE "" 1 ""
set_node z IDLE "" 1 "cb_fast"
set_node e IDLE "" 1 ""
record() { # HOST TEST PS [CPU_MODEL [DAY]]: a record of November DAY (default 02) in $wrec
  local day=${5:-02}
  mkdir -p "$wrec/$1"
  cat > "$wrec/$1/$1-$2-202611${day}T000000Z.json" <<JSON
{"schema": 1, "host": "$1", "test": "$2", "started_at": "2026-11-${day}T00:00:00Z",
 "duration_s": 6, "threads": 1, "thread_ps": [1], "ps_result": $3, "exit_value": null,
 "status": null, "cpu_model": "${4:-Xeon}", "logical_cpus": 2, "physical_cpus": 2,
 "hyperthreading": false, "mhz_current": null, "mhz_max": null, "ram_gib": null, "os": null,
 "errors": [], "corebench_sha256": null, "source": "run"}
JSON
}
wrec=$tmp/weights
# y and z: a near-zero score and a zero one get the highest weight, not one out of Slurm's range.
record y All 0.001; record z All 0; record b All 100; record ghost All 400; record c All 150
record a All 200 'Xeon\nb,All,2026-11-03T00:00:00Z,no,,0.001,1,1,1,1,1,,1,2,x,f'
record c all 1 Xeon 01; record d All 50; record d Single 900; record e All null
wrec=$tmp/ghost-only
record ghost All 400
weights() { "$contrib/corebench-weights" --fleet "$fleet" "$@"; }
out=$(weights --dry-run "$tmp/weights" 2>"$tmp/weights.err") || fail "weights --dry-run failed: $out $(cat "$tmp/weights.err")"
[ ! -e "$stub/calls" ] || fail "--dry-run changed nodes: $(cat "$stub/calls")"
out=$(weights "$tmp/weights" 2>"$tmp/weights.err") || fail "weights failed: $out $(cat "$tmp/weights.err")"
grep -q "skipped ghost: not in the node list" "$tmp/weights.err" &&
  grep -q "skipped e: its record has no score" "$tmp/weights.err" || fail "skips not named: $(cat "$tmp/weights.err")"
for expect in "a 100 ssd,cb_fast" "c 133 gpu,cb_fast" "b 200 cb_mid" "d 400 cb_mid" "y 65533 cb_slow" "z 65533 cb_slow"; do
  read -r n w f <<<"$expect"
  [ "$(node_field "$n" weight) $(node_field "$n" features)" = "$w $f" ] ||
    fail "node $n: Weight $(node_field "$n" weight) Features $(node_field "$n" features), expected $w $f"
  printf '%s\n' "$out" | grep -qx "NodeName=$n ... Weight=$w Features=$f" || fail "no slurm.conf line for $n: $out"
done
[ "$(grep -c . "$stub/calls")" -eq 6 ] || fail "weights updated: $(cat "$stub/calls")"
weights "$tmp/ghost-only" >/dev/null 2>&1 && fail "weights with no known node succeeded"

if [ $failures -ne 0 ]; then
  echo "$failures check(s) failed" >&2
  exit 1
fi
echo "recipes: all checks passed"
