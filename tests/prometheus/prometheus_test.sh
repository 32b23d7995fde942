#!/usr/bin/env bash
# The shipped Prometheus rules against Prometheus' own tools. "rules RULES": promtool checks them
# and runs corebench-rules.test.yml. "alerts RULES COREBENCH_FLEET LOG_DIR": three node exporters
# serve what corebench-fleet imported from captured logs, one node's scores cut to 15 PS for its
# last three runs after three at its old score, and a Prometheus server with RULES ("for" cut to
# 2 s) must alert CorebenchNodeSlow and CorebenchNodeDrift for that node alone. Servers listen on
# free loopback ports, keep their files in a temporary folder and are stopped by PID; every wait
# is bounded. A missing tool skips (77), or fails under COREBENCH_REQUIRE_PROMETHEUS=1.
set -euo pipefail
mode=$1
rules=$(readlink -f "$2")
need() {
  local tool
  for tool in "$@"; do
    command -v "$tool" >/dev/null 2>&1 && continue
    echo "prometheus-test: $tool is not installed (scripts/setup --prometheus --fleet)"
    [ "${COREBENCH_REQUIRE_PROMETHEUS:-}" = 1 ] && exit 1
    exit 77
  done
}
if [ "$mode" = rules ]; then
  need promtool
  promtool check rules "$rules"
  exec promtool test rules "$(dirname "$0")/corebench-rules.test.yml"
fi

exporter=$(command -v prometheus-node-exporter || command -v node_exporter || echo node_exporter)
need prometheus "$exporter" curl jq
fleet=$(readlink -f "$3")
data=$(readlink -f "$4")
tmp=$(mktemp -d /tmp/corebench-prometheus.XXXXXX)
pids=()
cleanup() {
  local status=$? pid i
  for pid in "${pids[@]}"; do
    kill -TERM "$pid" 2>/dev/null || continue
    for ((i = 0; i < 50; i++)); do
      kill -0 "$pid" 2>/dev/null || break
      sleep 0.1
    done
    kill -KILL "$pid" 2>/dev/null || true
    wait "$pid" 2>/dev/null || true
  done
  [ $status -eq 0 ] || tail -n 15 "$tmp"/*.log >&2 || true
  rm -rf "$tmp"
}
trap cleanup EXIT
trap 'exit 1' INT TERM HUP
fail() { echo "prometheus-test: FAILED: $*" >&2; exit 1; }
# within SECONDS WHAT COMMAND...: runs COMMAND every 0.2 s until it succeeds.
within() {
  local deadline=$((SECONDS + $1)) what=$2
  shift 2
  until "$@"; do
    [ $SECONDS -lt $deadline ] || fail "no $what in time"
    sleep 0.2
  done
}
# start NAME COMMAND...: starts a server on a port of its choosing and sets addr to it.
listening() { kill -0 "$1" || fail "$2 exited"; grep -q 'msg="Listening on"' "$tmp/$2.log"; }
start() {
  local name=$1
  shift
  "$@" --web.listen-address=127.0.0.1:0 >"$tmp/$name.log" 2>&1 &
  pids+=($!)
  within 20 "$name listening" listening $! "$name"
  addr=$(sed -n 's/.*msg="Listening on" address=\(127\.0\.0\.1:[0-9]*\).*/\1/p' "$tmp/$name.log")
}

mkdir "$tmp/logs"
cp "$data/singlespeed-divider1.log" "$tmp/logs/node1.log"         # 22.444 PS
cp "$data/singlespeed-divider-negative.log" "$tmp/logs/node2.log" # 24.488 PS
sed -e 's/10\.753/7.5/g' -e 's/PS_Result: 21\.505/PS_Result: 15/' "$data/singlespeed-plain.log" \
  >"$tmp/logs/node3.log"
# node3's earlier runs: three at 21.505 PS (no baseline until the fourth run), then two cut to
# 15 PS, too few for a drift: the one imported below is the third, and the drift is found.
for age in 5 4 3 2 1; do
  log=$data/singlespeed-plain.log
  [ $age -gt 2 ] || log=$tmp/logs/node3.log
  cp "$log" "$tmp/node3.$age" && touch -d "$age days ago" "$tmp/node3.$age"
  timeout 30 "$fleet" import --out "$tmp/records" --prom "$tmp/prom3" "$tmp/node3.$age" \
    2>/dev/null || fail "corebench-fleet import node3.$age"
  [ $age -lt 3 ] || ! grep -q ^corebench_baseline "$tmp/prom3/corebench.prom" ||
    fail "a baseline of fewer than 3 runs"
  grep -qx 'corebench_drift_ratio{test="SingleSpeed"} 1' "$tmp/prom3/corebench.prom" ||
    fail "a drift of fewer than 3 runs: $(cat "$tmp/prom3/corebench.prom")"
done
targets=()
for n in 1 2 3; do
  timeout 30 "$fleet" import --out "$tmp/records" --prom "$tmp/prom$n" "$tmp/logs/node$n.log" \
    >/dev/null || fail "corebench-fleet import node$n.log"
  start "exporter$n" "$exporter" --collector.disable-defaults --collector.textfile \
    --collector.textfile.directory="$tmp/prom$n"
  targets+=("\"$addr\"")
done
grep -qx 'corebench_score_ps{test="SingleSpeed"} 15' "$tmp/prom3/corebench.prom" &&
  grep -qx 'corebench_baseline_score_ps{test="SingleSpeed"} 21.505' "$tmp/prom3/corebench.prom" &&
  grep -qx 'corebench_drift_ratio{test="SingleSpeed"} 0\.6975[0-9]*' "$tmp/prom3/corebench.prom" ||
  fail "node3's series are not 15, 21.505 and 15/21.505: $(cat "$tmp/prom3/corebench.prom")"
slow=${targets[2]//\"/}

sed -E 's/^( *for:).*/\1 2s/' "$rules" >"$tmp/rules.yml"
[ "$(grep -c '^ *for: 2s$' "$tmp/rules.yml")" -eq "$(grep -c '^ *- alert:' "$rules")" ] ||
  fail "not every alert of $rules has one \"for\""
cat >"$tmp/prometheus.yml" <<CONF
global: {scrape_interval: 1s, evaluation_interval: 1s}
rule_files: ["$tmp/rules.yml"]
scrape_configs: [{job_name: node, static_configs: [{targets: [$(IFS=,; echo "${targets[*]}")]}]}]
CONF
start prometheus prometheus --config.file="$tmp/prometheus.yml" --storage.tsdb.path="$tmp/data"
api=http://$addr/api/v1

# Every active alert (pending or firing) as "name instance", one a line, sorted.
alerts() {
  curl -sf --max-time 5 "$api/alerts" |
    jq -r '.data.alerts[] | "\(.labels.alertname) \(.labels.instance)"' | sort >"$tmp/alerts" &&
    [ "$(wc -l <"$tmp/alerts")" -ge 2 ]
}
within 60 "two alerts" alerts
[ "$(paste -sd, "$tmp/alerts")" = "CorebenchNodeDrift $slow,CorebenchNodeSlow $slow" ] ||
  fail "expected CorebenchNodeDrift and CorebenchNodeSlow for node3 only, got: $(cat "$tmp/alerts")"
value() {
  curl -sf --max-time 5 "$api/query" --data-urlencode "query=$1" | jq -r '.data.result[].value[1]'
}
if [ "$(value cpu_model_test:corebench_score_ps:count)" != 3 ] ||
  [ "$(value cpu_model_test:corebench_score_ps:median)" != 22.444 ]; then
  fail "the CPU model's count and median are not 3 and 22.444"
fi
echo "prometheus-test: $(paste -sd, "$tmp/alerts"), the median of 3 nodes is 22.444 PS"
