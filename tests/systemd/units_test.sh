#!/usr/bin/env bash
# corebench.service and corebench.timer as the install writes them, into a temporary prefix:
# checked by systemd-analyze verify, and the service's command lines run as systemd runs them
# (Environment= first, the settings file over it, each ${NAME} one argument): its condition on an
# idle and on a loaded node (planted proc trees), its run with a stand-in for corebench writing a
# record and a .prom, and settings it cannot use. Without systemd-analyze the rest still runs and
# the test ends skipped (77).
#
# Usage: units_test.sh CMAKE BUILD_DIR FLEET_TEST_DATA
set -uo pipefail

cmake=$1
build=$(readlink -f "$2")
data=$(readlink -f "$3")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0
fail() {
  echo "FAIL: $*"
  failures=$((failures + 1))
}

prefix=$work/usr
if ! "$cmake" --install "$build" --prefix "$prefix" >"$work/install.log" 2>&1; then
  cat "$work/install.log"
  echo "FAIL: cmake --install $build --prefix $prefix"
  exit 1
fi
units=$prefix/lib/systemd/system
service=$units/corebench.service

verified=false
if ! command -v systemd-analyze >/dev/null 2>&1; then
  echo "skipped: systemd-analyze verify (not installed; scripts/setup --services installs it)"
else
  # It warns of a setting it does not know and still exits 0: any word about the units fails.
  if ! out=$(cd "$units" && systemd-analyze verify ./corebench.timer ./corebench.service 2>&1) ||
    grep -q corebench <<<"$out"; then
    fail "systemd-analyze verify: $out"
  fi
  verified=true
fi

# The value of KEY= in the service.
setting() {
  sed -n "s/^$1=//p" "$service"
}
for key in Environment EnvironmentFile ExecCondition ExecStart; do
  [ "$(grep -c "^$key=" "$service")" -eq 1 ] || fail "$key= is not in $service once"
done
[ "$(setting EnvironmentFile)" = /etc/corebench/corebench.conf ] ||
  fail "the settings are not read from /etc/corebench/corebench.conf"
# Each variable a word of its own, ${NAME}: systemd passes it as one argument, empty when unset.
for word in $(setting ExecCondition) $(setting ExecStart); do
  [[ $word != *\$* || $word =~ ^\$\{[A-Z_]+\}$ ]] || fail "a variable that is not a word of its own: $word"
done

# Runs the service's KEY= command line with the settings file given in place of
# /etc/corebench/corebench.conf and further arguments after it; prints its status, then its
# output. Values hold no quotes or blanks here, which both systemd and this reading leave as they
# are.
run_line() {
  local key=$1 settings=$2
  shift 2
  local -A env=()
  local assignment word args=()
  for assignment in $(setting Environment); do
    env[${assignment%%=*}]=${assignment#*=}
  done
  while IFS= read -r assignment; do
    [[ $assignment =~ ^[A-Z_]+= ]] && env[${assignment%%=*}]=${assignment#*=}
  done <"$settings"
  for word in $(setting "$key"); do
    if [[ $word =~ ^\$\{([A-Z_]+)\}$ ]]; then
      args+=("${env[${BASH_REMATCH[1]}]-}")
    else
      args+=("$word")
    fi
  done
  local status=0
  (cd "$work" && "${args[@]}" "$@") >"$work/out" 2>&1 || status=$?
  echo "$status"
  cat "$work/out"
}

# expect STATUS TEXT KEY SETTINGS [ARGS...]: the line exits with STATUS and prints TEXT.
expect() {
  local status=$1 text=$2 result
  shift 2
  result=$(run_line "$@")
  if [ "$(head -n 1 <<<"$result")" != "$status" ] || ! grep -qF -- "$text" <<<"$result"; then
    fail "$1 with $(paste -sd' ' "$2") ${*:3}: expected status $status and \"$text\", got: $result"
  fi
}

# Two CPUs, so the default limit is 0.20; the five-minute average keeps a node busy for minutes
# after a job ended.
plant_proc() {
  mkdir -p "$work/$1"
  echo "$2 0.30 2/250 4242" >"$work/$1/loadavg"
  printf 'cpu  900 0 300 9000 10 0 5 0 0 0\ncpu0 450 0 150 4500 5 0 2 0 0 0\ncpu1 450 0 150 4500 5 0 3 0 0 0\nintr 1\n' \
    >"$work/$1/stat"
}
plant_proc idle "0.05 0.20"
plant_proc loaded "1.98 1.02"
plant_proc ended "0.15 0.64"

echo "RECORDS=$work/records" >"$work/defaults.conf"
expect 0 "idle: load 0.05 over 1 min and 0.20 over 5 min on 2 CPUs, at most 0.20" \
  ExecCondition "$work/defaults.conf" --proc "$work/idle"
expect 1 "busy: load 1.98 over 1 min" ExecCondition "$work/defaults.conf" --proc "$work/loaded"
expect 1 "busy: load 0.15 over 1 min and 0.64" ExecCondition "$work/defaults.conf" --proc "$work/ended"
printf '# a busier limit\nMAX_LOAD=0.5\n' >"$work/busier.conf"
expect 0 "idle: " ExecCondition "$work/busier.conf" --proc "$work/ended"
echo "MAX_LOAD=10%" >"$work/percent.conf"
expect 2 'corebench-fleet: --max-load takes a load per CPU from 0 to 1, such as 0.10, not "10%"' \
  ExecCondition "$work/percent.conf" --proc "$work/idle"

# The run, by the corebench installed beside corebench-fleet: a stand-in replaying a captured log.
printf '#!/bin/sh\nprintf "<%%s>" "$@" >"%s"\ncat "%s"\n' "$work/args" "$data/singlespeed-plain.log" \
  >"$prefix/bin/corebench"
export COREBENCH_FLEET_TEST_CONDITIONS=$data/conditions-clean.json
printf 'RECORDS=%s\nPROM=%s\nTEST=SingleSpeed\n' "$work/records" "$work/prom" >"$work/run.conf"
expect 0 "corebench-fleet: recorded $work/records/" ExecStart "$work/run.conf"
[ "$(cat "$work/args" 2>/dev/null)" = "<SingleSpeed>" ] || fail "corebench was not run with SingleSpeed alone"
records=$(find "$work/records" -name '*-SingleSpeed-*.json' | wc -l)
[ "$records" -eq 1 ] || fail "$records records of the run instead of 1"
grep -q '^corebench_score_ps{test="SingleSpeed"} 21.505$' "$work/prom/corebench.prom" 2>/dev/null ||
  fail "no SingleSpeed score in $work/prom/corebench.prom"
echo "PROM=$work/prom" >"$work/norecords.conf"
expect 2 "corebench-fleet: --out is empty: it must name a folder" ExecStart "$work/norecords.conf"

if [ "$failures" -ne 0 ]; then
  echo "$failures check(s) of the systemd units failed"
  exit 1
fi
echo "the systemd units' command lines behave as they should"
$verified || exit 77
