#!/usr/bin/env bash
# The Task Scheduler recipe as Windows reads it: the task is well-formed XML whose settings run it
# every 6 hours only while the computer is idle, not stopped when work comes, and starts the batch
# file with the settings as arguments; the batch file has CRLF line ends (cmd.exe misreads LF-only
# files) and runs corebench-fleet.exe run with them. The batch file itself runs under
# Wine in scripts/test's windows stage. Without xmllint it is skipped (77).
#
# Usage: task_test.sh CONTRIB_WINDOWS_DIR
set -uo pipefail

task=$1/corebench-task.xml
batch=$1/corebench-task.cmd
failures=0
fail() {
  echo "FAIL: $*"
  failures=$((failures + 1))
}

if ! command -v xmllint >/dev/null 2>&1; then
  echo "skipped: xmllint is not installed (scripts/setup --services installs it)"
  exit 77
fi
xmllint --noout "$task" || fail "$task is not well-formed XML"
# PATH=VALUE: the text at the element path below Task (namespace left out), which must be VALUE.
for check in Settings/RunOnlyIfIdle=true Settings/IdleSettings/StopOnIdleEnd=false \
  Settings/MultipleInstancesPolicy=IgnoreNew Triggers/CalendarTrigger/Repetition/Interval=PT6H \
  Triggers/CalendarTrigger/Repetition/Duration=P1D Principals/Principal/UserId=S-1-5-18 \
  'Actions/Exec/Command="C:\Program Files\corebench\corebench-task.cmd"' \
  'Actions/Exec/Arguments=\\fileserver\corebench\records "C:\Program Files\windows_exporter\textfile_inputs" All'; do
  path="/*[local-name()='Task']"
  for step in $(tr / ' ' <<<"${check%%=*}"); do
    path="$path/*[local-name()='$step']"
  done
  value=$(xmllint --xpath "string($path)" "$task" 2>&1)
  [ "$value" = "${check#*=}" ] || fail "$task: ${check%%=*} is \"$value\", not \"${check#*=}\""
done

if [ "$(grep -c $'\r$' "$batch")" -ne "$(wc -l <"$batch")" ] ||
  [ "$(tail -c 2 "$batch" | od -An -tx1 | tr -d ' ')" != 0d0a ]; then
  fail "$batch has a line without CRLF"
fi
grep -qF '"%~dp0corebench-fleet.exe" run --out "%~1" --prom "%~2" -- %3 ' "$batch" ||
  fail "$batch does not run corebench-fleet.exe beside it with the task's arguments"

if [ "$failures" -ne 0 ]; then
  echo "$failures check(s) of the Task Scheduler recipe failed"
  exit 1
fi
echo "the Task Scheduler task and its batch file are as Windows needs them"
