#!/usr/bin/env bash
# shellcheck disable=SC2015 # "check && check || fail" is meant
# The decisions of the Slurm recipes, with stand-ins for scontrol, sinfo, sbatch and
# corebench-fleet on PATH: what gets drained, resumed or left alone, what gets submitted and how
# the job scripts quote their paths, how nodes are weighted. The real daemons are exercised by
# slurm_cluster_test.sh; this covers the cases a one-node cluster cannot show (stale and missing
# records, other hosts, several nodes), without root.
#
# Usage: recipes_test.sh CONTRIB_SLURM_DIR
set -euo pipefail

contrib=$(readlink -f "$1")
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

# corebench-fleet: compare prints $STUB/report.csv and exits with $STUB/compare_status; run
# records its arguments.
cat > "$stub/bin/corebench-fleet" <<'STUB'
#!/usr/bin/env bash
if [ "$1" = run ]; then
  printf '<%s>' "$@" > "$STUB/run_args"
  exit 0
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
  RECORDS = ignored-by-the-next-line
RECORDS="$tmp/records"
FLOOR=${1-}      # PS
MAX_AGE=${2-}
TEST='All'
SLURM_CONF=$tmp/slurm.conf
HOST=n1
FLEET=corebench-fleet
CONF
}
# check CASE NODE_STATE NODE_REASON EXPECTED_STATE EXPECTED_REASON EXPECTED_OUTPUT_PART
check() {
  local name=$1 out status
  set_node slurm-n1 "$2" "$3"
  rm -f "$stub/calls"
  out=$(env -u SLURM_CONF SLURMD_NODENAME=slurm-n1 COREBENCH_HEALTHCHECK_CONF="$conf" \
    "$contrib/corebench-healthcheck" 2>&1) && status=0 || status=$?
  [ $status -eq 0 ] || fail "$name: exit $status: $out"
  [ "$(node_field slurm-n1 state)" = "$4" ] || fail "$name: state $(node_field slurm-n1 state), expected $4"
  [ "$(node_field slurm-n1 reason)" = "$5" ] || fail "$name: reason '$(node_field slurm-n1 reason)', expected '$5'"
  case $out in *"$6"*) ;; *) fail "$name: output '$out' lacks '$6'" ;; esac
}

write_conf 50 8d
report "$(row n10 All "$now_iso" yes "robust z -9" 10)" "$(row n1 all "$now_iso" no "" 90.5)" \
  "$(row n1 Single "$now_iso" yes "slow core" 5)"
check "healthy idle node" IDLE "" IDLE "" "slurm-n1: healthy (All 90.5 PS at $now_iso)"
[ ! -e "$stub/calls" ] || fail "a healthy idle node was updated: $(cat "$stub/calls")"
[ "$(cat "$stub/compare_args")" = "<compare><--format><csv><$tmp/records>" ] ||
  fail "compare ran as $(cat "$stub/compare_args")"
check "resume our drain" IDLE+DRAIN "corebench: 3 PS below floor 50" IDLE "" "resumed"
check "keep someone else's drain" IDLE+DRAIN "corebench-like but not ours" IDLE+DRAIN \
  "corebench-like but not ours" "left drained by someone else"
[ ! -e "$stub/calls" ] || fail "someone else's drain was touched: $(cat "$stub/calls")"
check "draining node of someone else" MIXED+DRAIN "disk" MIXED+DRAIN "disk" "left drained"

report "$(row n1 All "$now_iso" yes "robust z -4.20 below -3.5; slow core" 30)"
check "flagged and below the floor" IDLE "" IDLE+DRAIN \
  "corebench: flagged by compare (robust z -4.20 below -3.5; slow core); 30 PS below floor 50" "drained"
check "same reason again is no update" IDLE+DRAIN \
  "corebench: flagged by compare (robust z -4.20 below -3.5; slow core); 30 PS below floor 50" IDLE+DRAIN \
  "corebench: flagged by compare (robust z -4.20 below -3.5; slow core); 30 PS below floor 50" "stays drained"
[ ! -e "$stub/calls" ] || fail "an unchanged drain was updated: $(cat "$stub/calls")"
check "new reason replaces ours" IDLE+DRAIN "corebench: old" IDLE+DRAIN \
  "corebench: flagged by compare (robust z -4.20 below -3.5; slow core); 30 PS below floor 50" "drained"
check "bad node drained by someone else" IDLE+DRAIN "fan" IDLE+DRAIN "fan" "already drained by someone else: fan"

report "$(row n1 All "$old_iso" no "" 90)"
check "stale record" IDLE "" IDLE+DRAIN "corebench: newest record ($old_iso) older than 8d" "drained"
check "stale record, checked again" IDLE+DRAIN "corebench: newest record ($old_iso) older than 8d" IDLE+DRAIN \
  "corebench: newest record ($old_iso) older than 8d" "stays drained"
write_conf 50 11d
check "record within the age" IDLE "" IDLE "" "healthy"
write_conf "" ""
report "$(row n1 All "$now_iso" no "" 1)"
check "no floor, no age" IDLE "" IDLE "" "healthy"

report "$(row n2 All "$now_iso" no "" 90)"
write_conf 50 8d
check "no record with an age limit" IDLE "" IDLE+DRAIN "corebench: no All record of n1 in $tmp/records" "drained"
write_conf 50 ""
check "no record without an age limit" IDLE "" IDLE "" "healthy (no All record of n1)"

# compare exit 2: a bad file elsewhere; the node's own row still counts.
report "$(row n1 All "$now_iso" no "" 20)"
echo 2 > "$stub/compare_status"
check "compare found a bad file" IDLE "" IDLE+DRAIN "corebench: 20 PS below floor 50" "drained"

# Faults: nothing may be drained or resumed when the check itself cannot judge.
hc_fault() {
  local name=$1 expect=$2 out status
  set_node slurm-n1 IDLE+DRAIN "corebench: x"
  rm -f "$stub/calls"
  out=$(SLURMD_NODENAME=slurm-n1 "$contrib/corebench-healthcheck" --conf "$conf" 2>&1) && status=0 || status=$?
  [ $status -eq 1 ] || fail "$name: exit $status, expected 1: $out"
  case $out in *"$expect"*) ;; *) fail "$name: message '$out' lacks '$expect'" ;; esac
  [ ! -e "$stub/calls" ] || fail "$name: the node was updated: $(cat "$stub/calls")"
}
echo 3 > "$stub/compare_status"
hc_fault "compare crashed" "compare failed with status 3"
echo 0 > "$stub/compare_status"
: > "$stub/report.csv"
hc_fault "compare printed nothing" "printed no CSV report"
report "$(row n1 All "not a time" no "" 90)"
write_conf 50 8d
hc_fault "unreadable started_at" "unreadable started_at 'not a time'"
report "$(row n1 All "$now_iso" no "" 90)"
write_conf 50x 8d
hc_fault "bad floor" "FLOOR must be a number"
write_conf 50 8w
hc_fault "bad age" "MAX_AGE must look like"
write_conf 50 8d
echo "FLOR=60" >> "$conf"
hc_fault "misspelt setting" "$conf:10: unknown setting FLOR"
write_conf 50 8d
sed -i '/^RECORDS=/d' "$conf"
sed -i 's/^  RECORDS = .*/RECORDS=/' "$conf"
hc_fault "no records folder" "RECORDS (the shared records folder) is not set"
conf=$tmp/missing.conf
hc_fault "no settings file" "cannot read settings file $tmp/missing.conf"
# The shipped example parses: the first complaint is the example's records folder.
conf=$contrib/healthcheck.conf.example
hc_fault "the example settings" "records folder /shared/corebench/records is not there"
conf=$tmp/healthcheck.conf

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
[ "$(cat "$stub/run_args")" = "<run><--out><$odd/records><--corebench><$odd/bin/core bench><--><SingleSpeed>" ] ||
  fail "the benchmark job ran: $(cat "$stub/run_args")"
report_base=$(printf '%s\n' "$out" | awk '$1 == "report" { sub(/^report [0-9]+ /, ""); print }')
report_base=${report_base%.txt}
for status in 0 1 2 3; do
  echo "$status" > "$stub/compare_status"
  report "$(row n1 All "$now_iso" no "" 90)"
  rm -f "$report_base".*
  sh "$stub/job-104.sh" && got=0 || got=$?
  case $status in
    0|1) [ "$got" -eq 0 ] && [ -s "$report_base.csv" ] && [ -s "$report_base.txt" ] ||
      fail "report job with compare status $status: exit $got, files: $(ls "$odd/records")" ;;
    2) [ "$got" -eq 2 ] && [ -s "$report_base.csv" ] || fail "report job with a bad record: exit $got" ;;
    3) [ "$got" -eq 3 ] && [ ! -e "$report_base.csv" ] && [ ! -e "$report_base.csv.part" ] ||
      fail "report job with a broken compare: exit $got, files: $(ls "$odd/records")" ;;
  esac
done
echo 0 > "$stub/compare_status"
grep -q "<$odd/records>" "$stub/compare_args" || fail "the report job compared $(cat "$stub/compare_args")"

rm -f "$stub"/calls "$stub"/jobs
out=$("$contrib/corebench-sweep" --out "$tmp/records" --nodes n2,n4 2>&1) && fail "a sweep with no usable node succeeded: $out"
[ ! -e "$stub/jobs" ] || fail "a sweep with no usable node submitted jobs"
"$contrib/corebench-sweep" --partition farm >/dev/null 2>&1 && fail "a sweep without --out succeeded"
"$contrib/corebench-sweep" --out "$tmp/records" --time 0 >/dev/null 2>&1 && fail "a zero time limit was taken"

# ---------------------------------------------------------------- weights
rm -f "$stub"/nodes/* "$stub"/calls
set_node a IDLE "" 1 "ssd,cb_slow"
set_node b IDLE "" 1 ""
set_node c IDLE "" 1 "gpu"
set_node d IDLE "" 1 "cb_mid"
report "$(row a All "$now_iso" no "" 200)" "$(row b All "$now_iso" no "" 100)" \
  "$(row ghost All "$now_iso" no "" 400)" "$(row c All "$now_iso" yes "slow" 150)" \
  "$(row d All "$now_iso" no "" 50)" "$(row d Single "$now_iso" no "" 900)" "$(row e All "$now_iso" no "" "")"
echo 1 > "$stub/compare_status"
out=$("$contrib/corebench-weights" --dry-run "$tmp/records" 2>"$tmp/weights.err") || fail "weights --dry-run failed: $out"
[ ! -e "$stub/calls" ] || fail "--dry-run changed nodes: $(cat "$stub/calls")"
out=$("$contrib/corebench-weights" "$tmp/records" 2>"$tmp/weights.err") || fail "weights failed: $out"
grep -q "skipped ghost: not a node of this cluster" "$tmp/weights.err" || fail "ghost not reported: $(cat "$tmp/weights.err")"
for expect in "a 100 ssd,cb_fast" "c 133 gpu,cb_fast" "b 200 cb_mid" "d 400 cb_slow"; do
  read -r n w f <<<"$expect"
  [ "$(node_field "$n" weight) $(node_field "$n" features)" = "$w $f" ] ||
    fail "node $n: Weight $(node_field "$n" weight) Features $(node_field "$n" features), expected $w $f"
  printf '%s\n' "$out" | grep -qx "NodeName=$n ... Weight=$w Features=$f" || fail "no slurm.conf line for $n: $out"
done
report "$(row ghost All "$now_iso" no "" 400)"
"$contrib/corebench-weights" "$tmp/records" >/dev/null 2>&1 && fail "weights with no known node succeeded"
echo 0 > "$stub/compare_status"

if [ $failures -ne 0 ]; then
  echo "$failures check(s) failed" >&2
  exit 1
fi
echo "recipes: all checks passed"
