#!/usr/bin/env bash
# Checks corebench's packages as a farm admin meets them: what the .deb and the .rpm pull in, what
# the three packages hold, that the install rules honour DESTDIR and the prefix, and that the
# program installed by apt-get prints the same usage text as the build tree's binary.
# Usage: check_packages.sh DIST_DIR BUILD_DIR   (BUILD_DIR: the build the packages were made from)
# Installing needs root (CI runs as root); without it that step is skipped and says so.
set -uo pipefail

dist=$1
build=$2
failures=0
ok() { echo "ok: $*"; }
fail() {
  echo "FAIL: $*"
  failures=$((failures + 1))
}
skip() { echo "skipped: $*"; }

work=$(mktemp -d)
installed_by_us=false
cleanup() {
  if $installed_by_us; then
    echo "removing the corebench package again"
    timeout 300 apt-get purge -y -q -o DPkg::Lock::Timeout=120 corebench >/dev/null ||
      echo "FAIL: could not remove the corebench package"
  fi
  rm -rf "$work"
}
trap cleanup EXIT
trap 'exit 1' INT TERM HUP

# The one file matching a pattern in dist/, or a failure naming what is there.
only_file() {
  # shellcheck disable=SC2206 # the pattern is meant to expand
  local files=("$dist"/$1)
  if [ ${#files[@]} -ne 1 ] || [ ! -f "${files[0]}" ]; then
    echo "FAIL: expected exactly one $1 in $dist, found: ${files[*]}" >&2
    return 1
  fi
  echo "${files[0]}"
}

# The Qt the build tree's program links decides which runtime the packages must name.
qt=$(objdump -p "$build/app/corebench" | sed -n 's/^ *NEEDED *libQt\([56]\)Core\.so.*/\1/p')
deb_qt_runtime=$([ "$qt" = 6 ] && echo libqt6core6 || echo libqt5core5a)
rpm_qt_runtime="libQt${qt:-5}Core\\.so\\.${qt:-5}"

# Files lists: every package holds the programs (corebench and its companion corebench-fleet,
# given as the path of corebench), the README, the Prometheus rules, the systemd units and their
# example settings, and nothing of the tests.
check_list() {
  local what=$1 list=$2 program=$3 readme=$4 file missing=""
  local share=${readme%/doc/corebench/README.md}
  local units=${share%/share}/lib/systemd/system
  for file in "$program" "$program-fleet" "$readme" "$share/corebench/prometheus/corebench-rules.yml" \
    "$units/corebench.service" "$units/corebench.timer" "$share/corebench/systemd/corebench.conf.example"; do
    grep -qx -- "$file" <<<"$list" || missing="$missing $file"
  done
  if [ -z "$missing" ]; then
    ok "$what holds $program, $program-fleet, $readme, the rules, the systemd units and settings"
  else
    fail "$what lacks$missing; it holds:"$'\n'"$list"
  fi
  if grep -iq 'test' <<<"$list"; then
    fail "$what holds test files: $(grep -i 'test' <<<"$list" | tr '\n' ' ')"
  fi
}

# Depends and requirements, one a line: the Qt Core runtime, and nothing for building (a
# development package, a compiler, a build tool, or a capability only development packages give).
check_dependencies() {
  local what=$1 list=$2 qt_pattern=$3 names for_building
  echo "$what: $(paste -sd ' ' <<<"$list")"
  names=$(awk '{print $1}' <<<"$list")
  if grep -Eq "$qt_pattern" <<<"$names"; then
    ok "$what name the Qt Core runtime"
  else
    fail "$what do not name the Qt Core runtime"
  fi
  for_building=$(grep -E '(-dev|-devel)$|^(g\+\+|gcc|gcc-c\+\+|cmake|make)$|^(pkgconfig|cmake)\(' \
    <<<"$names")
  if [ -n "$for_building" ]; then
    fail "$what name something for building: $(paste -sd ' ' <<<"$for_building")"
  else
    ok "$what name no development package"
  fi
}

if deb=$(only_file 'corebench_*.deb'); then
  check_dependencies ".deb Depends" "$(dpkg-deb -f "$deb" Depends | tr ',' '\n' | sed 's/^ *//')" \
    "^$deb_qt_runtime$"
  check_list ".deb" "$(dpkg-deb -c "$deb" | awk '{print $NF}')" \
    ./usr/bin/corebench ./usr/share/doc/corebench/README.md
  mkdir "$work/deb"
  dpkg-deb -x "$deb" "$work/deb"
  # The units start the corebench-fleet that the package installs.
  if [ "$(grep -c '^Exec[A-Za-z]*=/usr/bin/corebench-fleet ' "$work/deb/usr/lib/systemd/system/corebench.service")" -eq 2 ]; then
    ok ".deb's corebench.service starts /usr/bin/corebench-fleet"
  else
    fail ".deb's corebench.service does not start /usr/bin/corebench-fleet: $(grep '^Exec' "$work/deb/usr/lib/systemd/system/corebench.service")"
  fi
  for program in corebench corebench-fleet; do
    if file "$work/deb/usr/bin/$program" | grep -q ', stripped'; then
      ok ".deb's $program is stripped"
    else
      fail ".deb's $program is not stripped: $(file -b "$work/deb/usr/bin/$program")"
    fi
  done
else
  failures=$((failures + 1))
fi

if rpm=$(only_file 'corebench-*.rpm'); then
  check_dependencies ".rpm requirements" "$(rpm -qpR "$rpm" 2>/dev/null)" "^$rpm_qt_runtime\\("
  check_list ".rpm" "$(rpm -qpl "$rpm" 2>/dev/null)" \
    /usr/bin/corebench /usr/share/doc/corebench/README.md
else
  failures=$((failures + 1))
fi

if tgz=$(only_file 'corebench-*.tar.gz'); then
  top=$(basename "$tgz" .tar.gz)
  check_list ".tar.gz" "$(tar tzf "$tgz")" "$top/bin/corebench" "$top/share/doc/corebench/README.md"
else
  failures=$((failures + 1))
fi

# The install rules themselves, as "DESTDIR=... cmake --install ... --prefix ..." uses them.
if DESTDIR="$work/stage" cmake --install "$build" --prefix /opt/corebench >/dev/null; then
  installed=$(cd "$work/stage" && find . -type f | sort)
  if grep -qv '^\./opt/corebench/' <<<"$installed"; then
    fail "cmake --install with DESTDIR and prefix /opt/corebench wrote outside them:"$'\n'"$installed"
  fi
  check_list "the tree installed with DESTDIR and a prefix" "$installed" \
    ./opt/corebench/bin/corebench ./opt/corebench/share/doc/corebench/README.md
else
  fail "cmake --install failed"
fi

# corebench nosuchtest, which must exit 0 and open with a time stamp (HH:MM.SS), into FILE.body
# without that stamp, which may differ between two runs.
usage_of() {
  timeout 20 "$1" nosuchtest >"$2" && head -n 1 "$2" | grep -Eqx '[0-9]{2}:[0-9]{2}\.[0-9]{2}' &&
    tail -n +2 "$2" >"$2.body"
}

if [ "$(id -u)" -ne 0 ]; then
  skip "installing the .deb with apt-get needs root (CI runs as root)"
elif ! command -v apt-get >/dev/null 2>&1; then
  skip "installing the .deb needs apt-get"
elif dpkg-query -W -f='${Status}' corebench 2>/dev/null | grep -q 'ok installed'; then
  skip "a corebench package is already installed on this machine; it is left alone"
elif [ -n "${deb:-}" ]; then
  installed_by_us=true
  if timeout 300 env DEBIAN_FRONTEND=noninteractive \
    apt-get install -y -q -o DPkg::Lock::Timeout=120 "$(realpath "$deb")"; then
    ok "apt-get install $deb"
    if usage_of "$build/app/corebench" "$work/built" && usage_of /usr/bin/corebench "$work/installed"; then
      if cmp "$work/built.body" "$work/installed.body" && grep -qx 'Usage: ' "$work/installed.body"; then
        ok "/usr/bin/corebench nosuchtest prints the build tree's usage text byte for byte" \
          "($(wc -c <"$work/installed.body") bytes after the time stamp)"
      else
        fail "/usr/bin/corebench nosuchtest differs from the build tree's binary:"
        diff "$work/built.body" "$work/installed.body"
      fi
    else
      fail "running corebench nosuchtest (status, or no time stamp first)"
    fi
    if command -v systemd-analyze >/dev/null 2>&1; then
      if out=$(systemd-analyze verify /usr/lib/systemd/system/corebench.timer 2>&1) &&
        ! grep -q corebench <<<"$out"; then
        ok "systemd-analyze verify passes the installed corebench.timer and corebench.service"
      else
        fail "systemd-analyze verify of the installed units: $out"
      fi
    fi
    # The companion finds the corebench installed beside it: with a test name corebench does not
    # know, it runs it, keeps its output (the usage text) and says that it did not parse.
    status=0
    (cd "$work" && timeout 60 /usr/bin/corebench-fleet run --out fleet -- nosuchtest \
      >/dev/null 2>"$work/fleet.err") || status=$?
    if [ "$status" -eq 5 ] && grep -qx 'Usage: ' "$work"/fleet/*/*/*-nosuchtest-*.log 2>/dev/null; then
      ok "/usr/bin/corebench-fleet runs /usr/bin/corebench beside it"
    else
      fail "/usr/bin/corebench-fleet run -- nosuchtest exited with $status: $(cat "$work/fleet.err")"
    fi
  else
    fail "apt-get install $deb"
  fi
fi

if [ "$failures" -ne 0 ]; then
  echo "$failures package check(s) failed"
  exit 1
fi
echo "all package checks passed"
