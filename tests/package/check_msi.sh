#!/usr/bin/env bash
# Installs the Windows build's .msi as an admin does, `msiexec /i corebench.msi /qn`, under Wine
# (cmake/wine-run's prefix), checks that Program Files\corebench then holds the .zip's files byte
# for byte, runs the installed programs from there with nothing else on Wine's DLL path, and
# uninstalls it with `msiexec /x ... /qn`, which must leave no folder behind.
# Usage: check_msi.sh MSI ZIP_FOLDER USAGE_FILE
#   ZIP_FOLDER: the folder the .zip unpacks to; USAGE_FILE: the Linux program's usage text (what
#   `corebench nosuchtest` prints after the system summary), which corebench.exe must print.
set -uo pipefail
root=$(cd "$(dirname "$0")/../.." && pwd)
msi=$1
zip_folder=$2
usage=$3
failures=0
ok() { echo "ok: $*"; }
fail() {
  echo "FAIL: $*"
  failures=$((failures + 1))
}
wine_run() { timeout 300 "$root/cmake/wine-run" "" "$@"; }

msi_path=$(wine_run winepath -w "$msi" | tr -d '\r')
folder=$(wine_run winepath -u 'C:\Program Files\corebench' | tr -d '\r')
# A folder left by an earlier run that stopped halfway would pass for this install.
if [ -e "$folder" ]; then
  wine_run msiexec /x "$msi_path" /qn >/dev/null 2>&1
  rm -rf "$folder"
fi

if ! wine_run msiexec /i "$msi_path" /qn; then
  fail "msiexec /i $(basename "$msi") /qn failed"
  exit 1
fi
if diff -r "$zip_folder" "$folder" >/dev/null; then
  ok "msiexec installed the .zip's $(find "$folder" -type f | wc -l) files into $folder"
else
  fail "what msiexec installed differs from the .zip:"
  diff -r "$zip_folder" "$folder" | head -n 20
fi

# The installed programs, started by their Windows paths: corebench.exe prints the Linux usage
# bytes, corebench-fleet.exe its help.
installed=$(mktemp)
wine_run 'C:\Program Files\corebench\corebench.exe' nosuchtest | sed '1,/^OperatingSystem: /d' >"$installed"
if [ -s "$usage" ] && cmp -s "$usage" "$installed"; then
  ok "the installed corebench.exe prints the Linux usage bytes"
else
  fail "the installed corebench.exe does not print the Linux usage bytes"
fi
if wine_run 'C:\Program Files\corebench\corebench-fleet.exe' --help | grep -q '^  corebench-fleet run '; then
  ok "the installed corebench-fleet.exe starts and prints its help"
else
  fail "the installed corebench-fleet.exe did not print its help"
fi
rm -f "$installed"

if ! wine_run msiexec /x "$msi_path" /qn; then
  fail "msiexec /x $(basename "$msi") /qn failed"
elif [ -e "$folder" ]; then
  fail "msiexec /x left $folder behind: $(find "$folder" | head -n 5 | paste -sd' ')"
else
  ok "msiexec /x removed $folder"
fi
[ "$failures" -eq 0 ]
