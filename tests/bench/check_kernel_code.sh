#!/usr/bin/env bash
# Reads the disassembly of the bench library and checks that each kernel loop executes the
# instructions it is meant to measure: the optimiser folds (c * 20000) / c and the root-then-square
# of 113 into constants unless the code prevents it, and a library call instead of the square-root
# instruction would measure something else.
# Usage: check_kernel_code.sh LIBRARY [OBJDUMP]. OBJDUMP must read the library's target (the cross
# objdump for a cross build); the checks follow the library's architecture, not the host's.
# x86-64 and arm64 ELF and x86-64 PE (Windows); exits 77 (skipped) for anything else.
set -euo pipefail
library=$1
objdump=${2:-objdump}

format=$("$objdump" -f "$library" | sed -n 's/.*file format //p' | head -n 1)
case "$format" in
  elf64-x86-64 | pe-x86-64) arch=x86_64 ;;
  elf64-littleaarch64) arch=aarch64 ;;
  elf32-little | elf32-big | elf64-little | elf64-big)
    # A generic ELF format: this objdump does not know the library's processor.
    echo "FAIL: $objdump cannot disassemble $library; give the target's objdump"
    exit 1
    ;;
  *)
    echo "skipped: the checks read x86-64 or arm64 ELF code, not '$format'"
    exit 77
    ;;
esac
listing=$("$objdump" -dr --no-show-raw-insn -C "$library")

# For every loop (a backward branch and its target) of the function, which takes no arguments,
# prints how many of the loop's lines match each of the ';'-separated patterns.
loop_counts() {
  awk -v name="<$1()>:" -v patterns="$2" '
    function hex(s,   i, v) {
      for (i = 1; i <= length(s); i++) v = v * 16 + index("0123456789abcdef", substr(s, i, 1)) - 1
      return v
    }
    /^[0-9a-f]+ </ { inside = index($0, name) > 0; next }
    inside && $1 ~ /^[0-9a-f]+:$/ {
      address[++n] = hex(substr($1, 1, length($1) - 1))
      line[n] = $0
      # x86 jumps; arm64 plain, conditional, compare and test branches (not bl, a call). The
      # target is the address before the symbolic "<function+offset>".
      if ($2 ~ /^(j[a-z]+|b|b\.[a-z]+|cbn?z|tbn?z)$/) {
        for (f = 3; f < NF; f++) {
          if (substr($(f + 1), 1, 1) == "<") {
            if ($f ~ /^[0-9a-f]+$/ && hex($f) < address[n]) {
              from[++loops] = hex($f)
              to[loops] = address[n]
            }
            break
          }
        }
      }
    }
    END {
      count = split(patterns, pattern, ";")
      for (l = 1; l <= loops; l++) {
        out = ""
        for (p = 1; p <= count; p++) {
          matches = 0
          for (i = 1; i <= n; i++) {
            if (address[i] >= from[l] && address[i] <= to[l] && line[i] ~ pattern[p]) matches++
          }
          out = out (p > 1 ? " " : "") matches
        }
        print out
      }
    }' <<<"$listing"
}

failures=0
# expect FUNCTION PATTERNS COUNTS: some loop of FUNCTION matches the patterns exactly COUNTS times.
expect() {
  if loop_counts "$1" "$2" | grep -qx "$3"; then
    echo "ok: $1"
  else
    echo "FAIL: $1 has no loop with counts '$3' of '$2'; its loops:"
    loop_counts "$1" "$2" | sed 's/^/  /'
    failures=$((failures + 1))
  fi
}

if [ "$arch" = x86_64 ]; then
  call=$'\tcall '
  if [ "$format" = pe-x86-64 ]; then
    reloc() { echo "IMAGE_REL_AMD64_[A-Z0-9_]+[ \t]+$1\$"; }
  else
    reloc() { echo "R_X86_64_[A-Z0-9_]+[ \t]+$1[-+]"; }
  fi
  # Three signed divisions per step, at the integer width, and no calls. The parity of the step
  # is a branch, not a conditional move on the chain of dependent divisions, and d is computed
  # from the sums: folded, it would be b + 1 or b - 1, a single lea of b with displacement 1.
  lea_one='lea +-?0x1\(%[a-z0-9]+\),'
  expect integerLoop64 "idiv;idiv +%r([a-z][a-z]|[0-9]+)\$|idivq;$call;cmov;$lea_one" "3 3 0 0 0"
  expect integerLoop32 "idiv;idiv +%(e[a-z][a-z]|r[0-9]+d)\$|idivl;$call;cmov;$lea_one" "3 3 0 0 0"
  # One root and one multiplication per step, eight steps per turn.
  expect sqrtLoopSingle "sqrtss;mulss;$call" "8 8 0"
  expect sqrtLoopDouble "sqrtsd;mulsd;$call" "8 8 0"
  expect sqrtFill "sqrtps;divps;$call" "1 1 0"
else
  call=$'\tblr?\t'
  reloc() { echo "R_AARCH64_CALL26[ \t]+$1\$"; }
  select=$'\tcs(el|inc|inv|neg|et)\t'
  # Three signed divisions per step on 64-bit (x) or 32-bit (w) registers, no calls, and the
  # parity is a branch, not a conditional select on the chain of dependent divisions.
  expect integerLoop64 $'\tsdiv\t;\tsdiv\tx'";$call;$select" "3 3 0 0"
  expect integerLoop32 $'\tsdiv\t;\tsdiv\tw'";$call;$select" "3 3 0 0"
  # One root on an s or d register and one multiplication per step, eight steps per turn; a
  # root that may call sqrtf or sqrt instead would show as a call.
  expect sqrtLoopSingle $'\tfsqrt\ts;\tfmul\ts'";$call" "8 8 0"
  expect sqrtLoopDouble $'\tfsqrt\td;\tfmul\td'";$call" "8 8 0"
  expect sqrtFill $'\tfsqrt\tv[0-9]+\\.4s;\tfdiv\tv[0-9]+\\.4s'";$call" "1 1 0"
  # A fused multiply-add rounds once where the design rounds twice (10 * y + 10 * x, the sums
  # of the recurrences): none anywhere in the library.
  fused=$(grep -cE $'\tfn?m(add|sub)\t' <<<"$listing" || true)
  if [ "$fused" -eq 0 ]; then
    echo "ok: no fused multiply-add"
  else
    echo "FAIL: $fused fused multiply-add instructions:"
    awk '/^[0-9a-f]+ </ { f = $2 } /\tfn?m(add|sub)\t/ { print "  " f " " $0 }' <<<"$listing"
    failures=$((failures + 1))
  fi
fi
# Per step: two sine-cosine pairs, four cosines and two arc tangents of the loop's precision.
expect trigLoopSingle "$(reloc sincosf);$(reloc cosf);$(reloc atanf)" "2 4 2"
expect trigLoopDouble "$(reloc sincos);$(reloc cos);$(reloc atan)" "2 4 2"
[ "$failures" -eq 0 ]
