#!/bin/bash
# Properties of the built library and of the source tree: checks.sh CHECK SOURCE-FOLDER BUILD-FOLDER
set -euo pipefail
source_dir=$2 build_dir=$3
library=$build_dir/lib/libnorvaks.so
fail() { echo "$*" >&2; exit 1; }

# The library exports its list of names, no fewer and no more.
exports() {
  diff <(grep '^[a-z_]' "$source_dir/src/exports.list" | sort) \
    <(nm -D --defined-only "$library" | awk '$2 != "A" {sub(/@.*/, "", $3); print $3}' | sort) ||
    fail "the exported names differ from src/exports.list"
}

# Any C program can load it, and it is hardened.
loading() {
  local dynamic segments
  dynamic=$(readelf -dW "$library") segments=$(readelf -lW "$library")
  grep -q 'SONAME.*\[libnorvaks\.so\.1\]' <<<"$dynamic" || fail "wrong SONAME"
  ! grep -E 'NEEDED.*(stdc\+\+|libgcc)' <<<"$dynamic" || fail "needs the C++ runtime"
  ! grep TEXTREL <<<"$dynamic" || fail "has text relocations"
  grep -q 'FLAGS_1.*NOW' <<<"$dynamic" || fail "symbols are not bound at load time"
  grep -q 'FLAGS_1.*NODELETE' <<<"$dynamic" || fail "could be unloaded"
  grep -q GNU_RELRO <<<"$segments" || fail "has no RELRO"
  grep 'GNU_STACK' <<<"$segments" | grep -qv 'RWE' || fail "has an executable stack"
}

# No frame holds a destructor across a call, which a raise would skip: such a frame would have an
# exception table in the objects compiled with -fexceptions.
no_destructors() {
  local object count=0
  while read -r object; do
    count=$((count + 1))
    ! readelf -SW "$object" | grep -q '\.gcc_except_table' || fail "$object has an exception table"
  done < <(find "$build_dir" -path '*norvaks_exception_check*' -name '*.o')
  [ "$count" -ge 16 ] || fail "only $count objects looked at"
}

# No state is set up at load time or behind a guard.
no_initialisers() {
  local objects
  objects=$(find "$build_dir" -path '*norvaks_objects.dir*' -name '*.cc.o')
  [ -n "$objects" ] || fail "no objects"
  # shellcheck disable=SC2086
  ! nm $objects | grep -E '_ZGV|_GLOBAL__sub_I' || fail "run-time initialisers"
}

# Every source has its test, and every test is in the build.
tests_mirror_sources() {
  local file subject bad=0
  cd "$source_dir"
  for file in src/*/*.cc; do
    subject=${file#src/}
    [ -e "tests/${subject%.cc}_test.cc" ] || { echo "$file has no test" >&2; bad=1; }
  done
  for file in tests/*/*_test.cc; do
    grep -q "${file#tests/}" tests/CMakeLists.txt || { echo "$file is not built" >&2; bad=1; }
  done
  return $bad
}

# Every exported name is declared in a header, behind a comment of its own or of its group.
headers_documented() {
  local name bad=0
  cd "$source_dir"
  for name in $(grep '^[a-z]' src/exports.list); do
    awk -v name="$name" '
      /^\/\*|^ \*/ {comment = 1; next}
      /^$/ {comment = 0}
      $0 ~ "[ *(]" name "[(;]" && /^(extern )?KS_API/ && comment {found = 1}
      END {exit !found}' include/*.h || { echo "$name has no comment in a header" >&2; bad=1; }
  done
  return $bad
}

"$1"
