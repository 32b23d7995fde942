# shellcheck shell=bash
# Sourced by the scripts in this folder: what they all need before building.

# Homebrew keeps Qt 5 outside the default search path.
if [ "$(uname -s)" = "Darwin" ] && command -v brew >/dev/null 2>&1; then
  CMAKE_PREFIX_PATH="$(brew --prefix qt@5)${CMAKE_PREFIX_PATH:+:$CMAKE_PREFIX_PATH}"
  export CMAKE_PREFIX_PATH
fi

# quietly COMMAND...: quiet when the command succeeds; when it fails, its whole output and the
# command on stderr, and the script stops.
quietly() {
  local output
  if ! output=$("$@" 2>&1); then
    printf '%s\n' "$output" >&2
    echo "${0##*/}: failed: $*" >&2
    exit 1
  fi
}
