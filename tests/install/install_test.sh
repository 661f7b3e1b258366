#!/bin/bash
# Installs the built library into a temporary prefix and builds and runs programs against it, by
# pkg-config and by find_package: install_test.sh SOURCE-FOLDER BUILD-FOLDER VERSION
set -euo pipefail
source_dir=$1 build_dir=$2 version=$3

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix
fail() { echo "$*" >&2; exit 1; }

cmake --install "$build_dir" --prefix "$prefix" >/dev/null
lib_dir=$(dirname "$(find "$prefix" -name libnorvaks.so)")

# The library with its links, the headers, the catalogs.
[ "$(readlink "$lib_dir/libnorvaks.so")" = libnorvaks.so.1 ] || fail "no link libnorvaks.so"
[ "$(readlink "$lib_dir/libnorvaks.so.1")" = "libnorvaks.so.$version" ] || fail "no link libnorvaks.so.1"
for header in "$source_dir"/include/*.h; do
  cmp "$header" "$prefix/include/norvaks/$(basename "$header")" || fail "header not installed"
done
for language in en de ja; do
  [ -s "$prefix/share/norvaks/nls/$language/ks_lib.cat" ] || fail "no catalog for $language"
done

export PKG_CONFIG_PATH=$lib_dir/pkgconfig LD_LIBRARY_PATH=$lib_dir
[ "$(pkg-config --modversion norvaks)" = "$version" ] || fail "pkg-config knows another version"

# check_output PROGRAM: its greeting and the library's identity.
check_output() {
  "$1" >"$work/out" || fail "$1 failed with status $?"
  [ "$(sed -n 1p "$work/out")" = "hello, world" ] || fail "$1 printed $(cat "$work/out")"
  grep -qE "^libnorvaks {24}${version//./\\.} \([0-9]{4}-[0-9]{2}-[0-9]{2}\)$" "$work/out" ||
    fail "$1 printed $(cat "$work/out")"
}

user=$source_dir/tests/install/user
read -ra flags <<<"$(pkg-config --cflags --libs norvaks)"
"$prefix/bin/norvaks-messages" table "$user/hello.msg" "$work/hello_msg.h" "$work/hello_msg.c"
strict=(-Wall -Wextra -Werror -pedantic-errors -I"$work")
cc -std=c11 "${strict[@]}" "$user/hello.c" "$work/hello_msg.c" -o "$work/by_pkg_config_c" "${flags[@]}"
cc -std=c11 "${strict[@]}" -c "$work/hello_msg.c" -o "$work/hello_msg.o" "${flags[@]}"
c++ -std=c++20 "${strict[@]}" "$user/hello.cc" "$work/hello_msg.o" -o "$work/by_pkg_config_cc" "${flags[@]}"
cc -std=c11 "${strict[@]}" "$user/strict.c" -o "$work/strict" "${flags[@]}"
"$work/strict" || fail "the program in strict C11 failed with status $?"
check_output "$work/by_pkg_config_c"
check_output "$work/by_pkg_config_cc"

cmake -S "$user" -B "$work/build" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/build" >/dev/null
check_output "$work/build/hello_c"
check_output "$work/build/hello_cc"
"$work/build/strict" || fail "the program in strict C11 failed with status $?"
[ -s "$work/build/hello.cat" ] || fail "no catalog hello.cat"

cmake -S "$source_dir/tests/install/cxx_user" -B "$work/cxx_build" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/cxx_build" >/dev/null
check_output "$work/cxx_build/hello"

# refused TEXT ARGUMENT...: what the arguments name does not compile, and TEXT says why.
refused() {
  local text=$1
  shift
  ! cc -std=c11 -I"$prefix/include" -fsyntax-only "$@" 2>"$work/errors" || fail "it compiles: $*"
  grep -qF "$text" "$work/errors" || fail "no word of \"$text\": $*"
}
refused "PFM_CLEANUP_START needs sigsetjmp: compile with -D_DEFAULT_SOURCE" \
  -D_LARGEFILE64_SOURCE "$user/strict.c"
if [ "$(cc -dumpmachine | cut -d- -f1)" != x86_64 ]; then
  for header in "$prefix"/include/norvaks/*.h; do
    refused "_TIME_BITS=64 makes struct timeval and stat other records" \
      -D_FILE_OFFSET_BITS=64 -D_TIME_BITS=64 -x c "$header"
  done
fi

# The README's first program compiles as shown and does what the text says.
sed -n '/^```c$/,/^```$/{/^```/d;p}' "$source_dir/README.md" >"$work/first.c"
compile=$(sed -n 's/^    \(cc .* -o first\)$/\1/p' "$source_dir/README.md")
(cd "$work" && eval "$compile") && [ -x "$work/first" ] || fail "the README's program does not compile"
[ "$(NLSPATH= "$work/first" one two)" = "one
two" ] || fail "the README's program printed something else"
status=0
said=$(NLSPATH= "$work/first" 2>&1) || status=$?
[ "$status" = 1 ] && [ "$said" = "first: Error: nothing to print" ] || fail "it said '$said', status $status"
grep -qF '`first: Error: nothing to print`' "$source_dir/README.md" || fail "the README says otherwise"
