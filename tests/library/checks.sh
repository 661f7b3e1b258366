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

# It is compiled with protection, and what the tests wrap is wrapped in its checked form, too.
hardened() {
  local objects used call
  objects=$(find "$build_dir" -path '*norvaks_objects.dir*' -name '*.o')
  [ -n "$objects" ] || fail "no objects"
  # shellcheck disable=SC2086
  [ "$(readelf -nW $objects | grep -c 'feature: IBT, SHSTK')" = "$(wc -w <<<"$objects")" ] ||
    fail "objects without control-flow protection"
  readelf -nW "$library" | grep -q SHSTK || fail "the library is not marked for a shadow stack"
  used=$(nm -D --undefined-only "$library")
  for call in __stack_chk_fail __longjmp_chk __snprintf_chk; do
    grep -q " $call@" <<<"$used" || fail "no call of $call"
  done
  ! grep -E '__v[a-z]*printf_chk' <<<"$used" || fail "a caller's format goes to a checked call"

  used=$(nm --undefined-only "$build_dir/bin/norvaks_tests")
  for call in $(grep -o '{"[a-z0-9_]*"}' "$source_dir/tests/support/faults.cc" | tr -d '{}"'); do
    ! grep -E " __${call}_(chk|2)@" <<<"$used" || fail "tests/support/checked_calls.cc lacks this call"
  done
}

# A program's own function is never called in the place of the library's: the library's calls do not
# go by the names that it exports. Variables, and routines whose addresses are compared, must do so.
own_names() {
  local shared by_name variables mode object flags
  shared=$(sed -n 's/^ *\([a-z_0-9]*\);$/\1/p' "$build_dir/src/norvaks.dynamic" | sort)
  by_name=$(readelf -rW "$library" | sed -nE 's/.* ([a-z_0-9]+)@@?NORVAKS.*/\1/p' | sort -u)
  variables=$(nm -D --defined-only "$library" | sed -nE 's/.* [BDRV] ([a-z_0-9]+)@.*/\1/p' | sort)
  diff <(comm -23 <(echo "$by_name") <(echo "$shared")) /dev/null || fail "the library calls these by name"
  diff <(comm -23 <(echo "$variables") <(echo "$shared")) /dev/null || fail "variables with two addresses"
  grep -qx rt_async <<<"$by_name" && grep -qx rt_async <<<"$variables" || fail "no names found"

  work=$(mktemp -d)
  trap 'rm -rf "$work"' EXIT
  object=$work/own_names.o
  for mode in -fPIE\ -pie -fno-pie\ -no-pie; do
    read -ra flags <<<"$mode"
    cc -O2 "${flags[0]}" -I"$build_dir/include" -c "$source_dir/tests/library/own_names.c" -o "$object"
    {
      echo '#include <stdio.h>'
      echo '#include <stdlib.h>'
      grep '^[a-z]' "$source_dir/src/exports.list" | sort |
        comm -23 - <({ nm -u "$object" | awk '{print $2}'; echo "$shared"; } | sort) |
        sed 's/.*/void &(void);\nvoid &(void) { fputs("& of the program was called\\n", stderr); abort(); }/'
    } >"$work/program.c"
    [ "$(grep -c abort "$work/program.c")" -ge 250 ] || fail "too few names of the program's own"
    cc "${flags[@]}" -rdynamic "$object" "$work/program.c" -L"$build_dir/lib" -lnorvaks -o "$work/program"
    [ "$(LD_LIBRARY_PATH=$build_dir/lib "$work/program")" = printed ] || fail "built with $mode it failed"
  done
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

# No state is set up at load time or behind a guard. What runs at load time is imsg_descriptors.cc.
no_initialisers() {
  local objects
  objects=$(find "$build_dir" -path '*norvaks_objects.dir*' -name '*.cc.o')
  [ -n "$objects" ] || fail "no objects"
  # shellcheck disable=SC2086
  ! nm $objects | grep -E '_ZGV|_GLOBAL__sub_I' || fail "run-time initialisers"
  # shellcheck disable=SC2086
  [ "$(readelf -SW $objects | awk '/^File:/ {file = $2} / \.init_array/ {print file}' |
    xargs -n 1 basename)" = imsg_descriptors.cc.o ] || fail "something else runs at load time"
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
